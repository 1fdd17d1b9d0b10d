// A burst on the page: its photos with the verdict on each, the merge with its progress, and the result.

import {MOST_FRAMES} from './burst.js';
import {BeforeAfter} from './slider.js';

const VERDICTS = ['merged', 'left out: could not be aligned', 'left out: too blurred', 'left out: too much differs',
  'not needed'];

function stem(name) {
  return name.replace(/\.[^.]*$/, '');
}
function seconds(milliseconds) {
  return `${(milliseconds / 1000).toFixed(1)} s`;
}
// Of the camera's clock.
function timeOfDay(photo) {
  return new Date(photo.time / 1000).toISOString().slice(0, 19).replace('T', ' ');
}

export class BurstCard {
  #title;
  #at;
  #items;
  #slider;
  #worker = null;
  #finish = null;
  #addresses = [];

  // onMerge(card) is called when its merge is asked for.
  constructor(photos, onMerge) {
    this.#title = `${photos.length} photos, ${timeOfDay(photos[0])}`;
    this.photos = photos.slice(0, MOST_FRAMES);
    this.element = document.getElementById('burst').content.firstElementChild.cloneNode(true);
    this.#at = name => this.element.querySelector(name);
    if (photos.length > MOST_FRAMES) {
      this.#at('.note').hidden = false;
      this.#at('.note').textContent = `A burst takes ${MOST_FRAMES} photos: the first ${MOST_FRAMES} are merged.`;
    }
    this.#items = this.photos.map(photo => {
      const item = document.createElement('li');
      const verdict = document.createElement('p');
      verdict.className = 'verdict';
      item.append(verdict, photo.name);
      this.#at('.photos').append(item);
      return item;
    });
    this.#slider = new BeforeAfter(this.#at('.result'));
    this.#at('.merge').addEventListener('click', () => onMerge(this));
    this.#at('.stop').addEventListener('click', () => this.stop());
  }

  setNumber(number) {
    this.#at('h2').textContent = `Burst ${number}: ${this.#title}`;
  }

  get merging() {
    return this.#worker !== null;
  }
  get merged() {
    return !this.#at('.save').hidden;
  }

  wait() {
    this.#show('waiting');
  }

  // Settled when the merge is done, failed or stopped; it never rejects.
  merge(settings) {
    this.#clear();
    this.#show('merging');
    this.#say('starting');
    const begun = performance.now();
    let decoded = 0;
    this.#worker = new Worker('worker.js', {type: 'module'});
    this.#worker.addEventListener('error', event => {
      event.preventDefault();
      this.#fail(event.message ?? 'the worker does not start');
    });
    this.#worker.addEventListener('message', async ({data}) => {
      if (data.kind === 'decoded') {
        this.#showThumbnail(data.index, data.thumbnail);
        decoded = Math.min(decoded + 1, this.photos.length);
        this.#say(`reading photos (${decoded} of ${this.photos.length})`);
      } else if (data.kind === 'progress') {
        this.#at('progress').value = data.percent;
        this.#say(data.percent < 100 ? 'merging' : 'writing');
      } else if (data.kind === 'failed') {
        this.#fail(data.message);
      } else {
        this.#end();
        const {duration} = performance.measure('burst', {start: begun});
        await this.#showResult(data, duration);
        this.#finish();
      }
    });
    this.#worker.postMessage({photos: this.photos, settings});
    return new Promise(resolve => {
      this.#finish = resolve;
    });
  }

  // At once: the worker ends with all that it holds.
  stop() {
    if (!this.#worker) return;
    this.#end();
    this.#show('idle');
    this.#say('stopped');
    this.#finish();
  }

  remove() {
    this.stop();
    this.#clear();
    this.element.remove();
  }

  #say(text, failed = false) {
    const state = this.#at('.state');
    if (state.textContent !== text) state.textContent = text;
    state.classList.toggle('failed', failed);
  }

  #fail(message) {
    this.#end();
    this.#show('idle');
    this.#say(`Not merged: ${message}.`, true);
    this.#finish();
  }

  #end() {
    this.#worker?.terminate();
    this.#worker = null;
  }

  #clear() {
    for (const address of this.#addresses) URL.revokeObjectURL(address);
    this.#addresses = [];
    this.#at('progress').value = 0;
    for (const item of this.#items) {
      item.className = '';
      item.firstElementChild.textContent = '';
    }
  }

  // idle, waiting, merging or done
  #show(state) {
    const focused = this.element.contains(document.activeElement);
    this.#at('.merge').hidden = state === 'merging';
    this.#at('.merge').disabled = state === 'waiting';
    this.#at('.merge').textContent = state === 'done' ? 'Merge again' : 'Merge';
    this.#at('.stop').hidden = state !== 'merging';
    this.#at('progress').hidden = state !== 'merging';
    this.#at('.save').hidden = state !== 'done';
    this.#at('.result').hidden = state !== 'done';
    if (state === 'waiting') this.#say('waiting for the burst before');
    // A button that hides would take the keyboard with it.
    if (focused && state !== 'waiting') this.#at({merging: '.stop', idle: '.merge', done: '.save'}[state]).focus();
  }

  #showThumbnail(index, thumbnail) {
    const item = this.#items[index];
    let canvas = item.querySelector('canvas');
    if (!canvas) {
      canvas = document.createElement('canvas');
      item.prepend(canvas);
    }
    Object.assign(canvas, {width: thumbnail.width, height: thumbnail.height});
    canvas.getContext('2d').putImageData(thumbnail, 0, 0);
  }

  async #showResult({frames, base, still, width, height, road, threads, times}, milliseconds) {
    this.element.dataset.road = road;  // for those who wonder about colours
    frames.forEach(({status, share}, i) => {
      const item = this.#items[i];
      item.className = status === 0 ? 'merged' : 'out';
      const verdict = i === base ? 'the base' : VERDICTS[status];
      const used = status === 0 && i !== base && share !== undefined ? `, ${Math.round(100 * share)} % of it` : '';
      item.querySelector('.verdict').textContent = verdict + used;
    });
    const [before, after] = [this.photos[base].file, still].map(blob => URL.createObjectURL(blob));
    this.#addresses = [before, after];
    const save = this.#at('.save');
    save.href = after;
    save.download = `${stem(this.photos[base].name)}-merged.jpg`;
    this.#show('done');
    const used = frames.filter(frame => frame.status === 0).length;
    const how = `${threads} ${threads > 1 ? 'threads' : 'thread'}; merge ${seconds(times.merge)}`;
    this.#say(`${used} of ${frames.length} photos merged, ${width} x ${height}, in ${seconds(milliseconds)} (${how})`);
    await this.#slider.show(before, after);
  }
}

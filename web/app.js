// The page: takes photos in, groups them into bursts and merges these one after the other.

import {BurstCard} from './burst_card.js';
import {groupPhotos} from './grouping.js';
import {readPhoto} from './picture_file.js';
import {SettingsForm} from './settings_form.js';
import {missingFeatures} from './support.js';

const at = id => document.getElementById(id);
const photos = new Map();  // by what tells two files apart
let cards = new Map();     // by the keys of their photos
let queue = Promise.resolve();
const form = new SettingsForm(at('settings'));

function keyOf(file) {
  return JSON.stringify([file.webkitRelativePath, file.name, file.size, file.lastModified]);
}

async function addFiles(files) {
  const unreadable = [];
  for (const file of files) {
    try {
      photos.set(keyOf(file), await readPhoto(file));
    } catch {
      unreadable.push(file.name);
    }
  }
  showBursts(unreadable);
}

function showBursts(unreadable = []) {
  const {bursts, singles} = groupPhotos([...photos.values()]);
  const left = cards;
  cards = new Map();
  bursts.forEach((burst, i) => {
    const key = burst.map(photo => keyOf(photo.file)).join();
    const card = left.get(key) ?? new BurstCard(burst, enqueue);
    card.setNumber(i + 1);
    left.delete(key);
    cards.set(key, card);
    at('bursts').append(card.element);
  });
  for (const card of left.values()) card.remove();
  at('all').hidden = photos.size === 0;
  at('mergeAll').disabled = bursts.length === 0;
  const parts = [`${photos.size} photos: ${bursts.length} ${bursts.length === 1 ? 'burst' : 'bursts'}`];
  if (singles.length > 0) parts.push(`${singles.length} alone (${singles.map(photo => photo.name).join(', ')})`);
  if (unreadable.length > 0) parts.push(`cannot be read: ${unreadable.join(', ')}`);
  at('summary').textContent = `${parts.join('; ')}.`;
}

function enqueue(card) {
  if (!form.check()) return;
  const settings = form.read();
  card.wait();
  queue = queue.then(() => card.element.isConnected ? card.merge(settings) : undefined);
}

at('files').addEventListener('change', async event => {
  await addFiles([...event.target.files]);
  event.target.value = '';
});
for (const kind of ['dragenter', 'dragover', 'dragleave', 'drop']) {
  addEventListener(kind, event => {
    event.preventDefault();
    at('drop').classList.toggle('over', kind === 'dragenter' || kind === 'dragover');
    if (kind === 'drop') addFiles([...event.dataTransfer.files].filter(file => file.type.startsWith('image/')));
  });
}
at('mergeAll').addEventListener('click', () => {
  for (const card of cards.values()) if (!card.merged && !card.merging) enqueue(card);
});
at('clear').addEventListener('click', () => {
  photos.clear();
  showBursts();
});

const lacking = missingFeatures();
if (lacking.length > 0) {
  at('lacking').hidden = false;
  at('lacking').textContent = `This browser cannot merge photos; it lacks ${lacking.join(', ')}.`;
  at('files').disabled = true;
}

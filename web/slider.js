// Two pictures of one size, one over the other, and where they meet: by a range input, by the keyboard and by the
// pointer. They can be seen whole or pixel by pixel, nearer, and moved.

const MOST_ZOOM = 16;
const ZOOM_STEP = 1.5;
const PAN_STEP = 60;

function clamp(value, least, most) {
  return Math.min(Math.max(value, least), most);
}

export class BeforeAfter {
  #stage;
  #split;
  #images;
  #scale = 1;
  #left = 0;
  #top = 0;
  #fitted = true;

  // root: a copy of the page's template of this name.
  constructor(root) {
    this.#stage = root.querySelector('.stage');
    this.#split = root.querySelector('.split');
    this.#images = [...root.querySelectorAll('.pane img')];
    const zoomOut = root.querySelector('.zoom');
    this.showZoom = () => {
      zoomOut.textContent = `${Math.round(this.#scale * 100)} %`;
    };
    const divider = root.querySelector('.divider');
    const cut = () => {
      root.querySelector('.cover').style.clipPath = `inset(0 0 0 ${this.#split.value}%)`;
      divider.style.left = `${this.#split.value}%`;
      root.querySelector('.split-value').textContent = `${this.#split.value} %`;
    };
    this.#split.addEventListener('input', cut);
    const actions = {
      '.nearer': () => this.#zoom(this.#scale * ZOOM_STEP), '.farther': () => this.#zoom(this.#scale / ZOOM_STEP),
      '.whole': () => this.#zoom(this.#fit()), '.pixels': () => this.#zoom(1),
    };
    for (const [button, action] of Object.entries(actions)) {
      root.querySelector(button).addEventListener('click', action);
    }
    this.#stage.addEventListener('keydown', event => this.#key(event));
    this.#stage.addEventListener('wheel', event => {
      if (!event.ctrlKey && this.#fitted && event.deltaY > 0) return;  // the page scrolls on
      event.preventDefault();
      const box = this.#stage.getBoundingClientRect();
      this.#zoom(this.#scale * Math.exp(-event.deltaY * 0.0015), event.clientX - box.left, event.clientY - box.top);
    }, {passive: false});
    this.#followPointer(divider, cut);
    new ResizeObserver(() => this.#fitted ? this.#zoom(this.#fit()) : this.#place()).observe(this.#stage);
    cut();
  }

  // Addresses of the pictures.
  async show(before, after) {
    await Promise.all([before, after].map(async (address, i) => {
      this.#images[i].src = address;
      await this.#images[i].decode().catch(() => {});  // a picture that cannot be shown leaves its side empty
    }));
    this.#zoom(this.#fit());
  }

  #size() {
    return [this.#images[1].naturalWidth || 1, this.#images[1].naturalHeight || 1];
  }

  #fit() {
    const [width, height] = this.#size();
    return Math.min(this.#stage.clientWidth / width, this.#stage.clientHeight / height) || 1;
  }

  #place() {
    const [width, height] = this.#size();
    const room = [this.#stage.clientWidth - width * this.#scale, this.#stage.clientHeight - height * this.#scale];
    this.#left = room[0] > 0 ? room[0] / 2 : clamp(this.#left, room[0], 0);
    this.#top = room[1] > 0 ? room[1] / 2 : clamp(this.#top, room[1], 0);
    for (const image of this.#images) {
      Object.assign(image, {width, height});
      image.style.transform = `translate(${this.#left}px, ${this.#top}px) scale(${this.#scale})`;
    }
    this.#stage.classList.toggle('near', this.#scale >= 2);
    this.showZoom();
  }

  #zoom(wanted, x = this.#stage.clientWidth / 2, y = this.#stage.clientHeight / 2) {
    const next = clamp(wanted, Math.min(this.#fit(), 1), MOST_ZOOM);
    this.#left = x - (x - this.#left) * next / this.#scale;
    this.#top = y - (y - this.#top) * next / this.#scale;
    this.#scale = next;
    this.#fitted = Math.abs(next - this.#fit()) < 1e-6;
    this.#place();
  }

  #pan(dx, dy) {
    this.#left += dx;
    this.#top += dy;
    this.#place();
  }

  #key(event) {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const actions = {
      'ArrowLeft': () => this.#pan(PAN_STEP, 0), 'ArrowRight': () => this.#pan(-PAN_STEP, 0),
      'ArrowUp': () => this.#pan(0, PAN_STEP), 'ArrowDown': () => this.#pan(0, -PAN_STEP),
      '+': () => this.#zoom(this.#scale * ZOOM_STEP), '=': () => this.#zoom(this.#scale * ZOOM_STEP),
      '-': () => this.#zoom(this.#scale / ZOOM_STEP), '0': () => this.#zoom(this.#fit()), '1': () => this.#zoom(1),
    };
    if (!actions[event.key]) return;
    actions[event.key]();
    event.preventDefault();
  }

  #followPointer(divider, cut) {
    let drag = null;
    this.#stage.addEventListener('pointerdown', event => {
      if (event.button !== 0) return;
      drag = {divides: event.target === divider, x: event.clientX, y: event.clientY};
      this.#stage.setPointerCapture(event.pointerId);
    });
    this.#stage.addEventListener('pointermove', event => {
      if (drag?.divides) {
        const box = this.#stage.getBoundingClientRect();
        this.#split.value = 100 * (event.clientX - box.left) / box.width;
        cut();
      } else if (drag) {
        this.#pan(event.clientX - drag.x, event.clientY - drag.y);
        Object.assign(drag, {x: event.clientX, y: event.clientY});
      }
    });
    for (const end of ['pointerup', 'pointercancel']) {
      this.#stage.addEventListener(end, () => {
        drag = null;
      });
    }
  }
}

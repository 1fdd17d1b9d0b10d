// The C functions as a class. It knows no browser: tests run it in node as well.
//
//   const library = await loadLibrary();
//   const burst = new Burst(library, 4000, 3000, 8);
//   for (let i = 0; i < 8; ++i) burst.frame(i).set(nv21[i]);
//   const frames = burst.merge({...usualSettings(), sharpness: 40});
//   const still = burst.result().slice();
//   burst.close();
//
// Frames and the result are NV21: height rows of luma, then (height + 1) / 2 rows of (width + 1) / 2 pairs V, U; rows of
// luma are padded to an even number of bytes. Full-range BT.601. Everything lies in the module's memory, so a view of it
// is good until the next call that may allocate.

import {SETTINGS} from './settings.js';

export const MOST_FRAMES = 10;
export const LEAST_SIDES = [480, 640];  // the short and the long one
const MOST_THREADS = 8;
const FORMAT = 'YVU420_SEMIPLANAR';
const IMAGE_BYTES = 20;  // of the records, with pointers of 4 bytes
const INFO_BYTES = 88;
const FINE_BYTES = 24;

// An error of the library, with its status, or one of memory.
export class BurstError extends Error {
  constructor(message, status) {
    super(message);
    this.name = 'BurstError';
    this.status = status;
  }
}

// Told by merge when the progress callback asked to stop.
export class Stopped extends Error {
  constructor() {
    super('stopped');
    this.name = 'Stopped';
  }
}

// Whether workers may share memory here, which threads need.
export function canShareMemory() {
  return globalThis.crossOriginIsolated === true;
}

// threads: how many work, the caller among them; more than 1 needs canShareMemory(). options: what the module itself
// takes, such as wasmBinary.
export async function loadLibrary({threads = canShareMemory() ? navigator.hardwareConcurrency : 1, ...options} = {}) {
  const count = Math.min(Math.max(threads, 1), MOST_THREADS);
  const {default: create} = await import(count > 1 ? './tessaline4-threads.mjs' : './tessaline4.mjs');
  // n threads of a pool of tasks, and n - 1 of one of rows.
  const module = await create({...options, poolSize: 2 * count - 1});
  return {module, threads: count};
}

export function nv21Bytes(width, height) {
  const pairs = (width + 1) >> 1;
  return 2 * pairs * (height + ((height + 1) >> 1));
}

export class Burst {
  #module;
  #threads;
  #blocks = [];
  #images = [];  // addresses of the frames' records, then of the result's

  constructor({module, threads}, width, height, count) {
    Object.assign(this, {width, height, count});
    this.#module = module;
    this.#threads = threads;
    try {
      for (let i = 0; i <= count; ++i) {
        const record = this.#allocate(IMAGE_BYTES);
        const pixels = this.#allocate(nv21Bytes(width, height));
        const chroma = pixels + 2 * ((width + 1) >> 1) * height;
        new Int32Array(module.HEAPU8.buffer, record, 5).set([width, height, pixels, chroma, 0]);
        this.#images.push(record);
      }
    } catch (error) {
      this.close();
      throw error;
    }
  }

  // To be filled before merge, which may change it.
  frame(i) {
    const [, , pixels] = new Int32Array(this.#module.HEAPU8.buffer, this.#images[i], 5);
    return new Uint8Array(this.#module.HEAPU8.buffer, pixels, nv21Bytes(this.width, this.height));
  }

  result() {
    return this.frame(this.count);
  }

  // settings: as usualSettings. onProgress(percent) is called between the steps; true stops the merge, which then
  // throws Stopped. Returns for each frame {status, order, score}, in the fine mode with its share, 0 to 1.
  merge(settings, onProgress = () => false) {
    const module = this.#module;
    const mark = this.#blocks.length;
    const call = name => module[`_zelvan_Tessaline4_${name}`];
    let stopped = false;
    let failure = null;
    const callback = module.addFunction((user, percent) => {
      try {
        stopped = onProgress(percent) === true;
      } catch (error) {
        failure = error;
      }
      return stopped || failure ? 1 : 0;
    }, 'iii');
    const check = (status, what) => {
      if (failure) throw failure;
      if (stopped && status !== 0) throw new Stopped();
      if (status !== 0) {
        const text = module.UTF8ToString(call('getStatusText')(status));
        throw new BurstError(`${what}: ${text}`, status >>> 0);
      }
    };
    const handle = this.#allocate(4);
    let open = false;
    try {
      const format = this.#allocate(FORMAT.length + 1);
      module.stringToUTF8(FORMAT, format, FORMAT.length + 1);
      const bytes = call('getBufferSize')(this.width, this.height, this.count, format);
      if (bytes <= 0) throw new BurstError('the photos are too large', 0);
      check(call('initialize')(handle, this.#allocate(bytes), bytes, this.width, this.height), 'initialize');
      open = true;
      check(call('setImageFormat')(handle, format), 'setImageFormat');
      check(call('setCoreSetting')(handle, this.#threads, 0), 'setCoreSetting');
      check(call('setProgress')(handle, callback, 0), 'setProgress');
      for (const {name, setter} of SETTINGS) {
        const value = settings[name] ?? null;
        if (value !== null) check(call(setter)(handle, value), setter);
      }
      check(call('start')(handle, this.#images[this.count], this.count), 'start');
      for (let i = 0; i < this.count; ++i) check(call('addImage')(handle, this.#images[i]), 'addImage');
      check(call('getResult')(handle), 'getResult');
      return this.#readFrames(handle, call);
    } finally {
      if (open) call('finalize')(handle);
      module.removeFunction(callback);
      while (this.#blocks.length > mark) module._free(this.#blocks.pop());
    }
  }

  close() {
    while (this.#blocks.length > 0) this.#module._free(this.#blocks.pop());
    this.#images = [];
  }

  #readFrames(handle, call) {
    const record = this.#allocate(INFO_BYTES);
    const fine = this.#allocate(FINE_BYTES);
    const frames = [];
    for (let i = 0; i < this.count; ++i) {
      call('getFrameInfo')(handle, i, record);
      const [score, order, status] = new Int32Array(this.#module.HEAPU8.buffer, record, 3);
      const frame = {status, order, score};
      if (call('getFineFrameInfo')(handle, i, fine) === 0) {
        frame.share = new Float64Array(this.#module.HEAPU8.buffer, fine, 3)[2];
      }
      frames.push(frame);
    }
    return frames;
  }

  #allocate(bytes) {
    const at = this.#module._malloc(bytes);
    if (at === 0) throw new BurstError('there is not enough memory', 0);
    this.#blocks.push(at);
    return at;
  }
}

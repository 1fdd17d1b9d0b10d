// One burst, decoded, merged and encoded away from the page. The page starts a worker for each and ends it with its
// result, or to stop it: so all its memory goes back.
//
// Takes {photos, settings} (photos as readPhoto makes them). Tells, in this order:
//   {kind: 'decoded', index, thumbnail}   for each photo; thumbnail is an ImageData
//   {kind: 'progress', percent}           of the merge
//   {kind: 'done', frames, base, still, width, height, road, threads, times}
//                                         frames: see Burst.merge; base: index; still: Blob of a JPEG file; times in ms
// or, instead of the last, {kind: 'failed', message}.

import {Burst, LEAST_SIDES, loadLibrary} from './burst.js';
import {decodePhotos} from './decoder.js';
import {exifForStill} from './exif.js';
import {jpegWith, readHead} from './picture_file.js';
import {rgbaOf} from './planes.js';

const QUALITY = 0.95;
const THUMBNAIL = 240;  // pixels of its long side, about

function checkSize(width, height) {
  const [short, long] = [Math.min(width, height), Math.max(width, height)];
  if (short < LEAST_SIDES[0] || long < LEAST_SIDES[1]) {
    throw new Error(`the photos are too small: ${width} x ${height}, at least ${LEAST_SIDES[1]} x ${LEAST_SIDES[0]}`);
  }
}

async function encode(nv21, width, height, base, road) {
  const canvas = new OffscreenCanvas(width, height);
  canvas.getContext('2d', {alpha: false}).putImageData(rgbaOf(nv21, width, height), 0, 0);
  const blob = await canvas.convertToBlob({type: 'image/jpeg', quality: QUALITY});
  const head = await readHead(base.file);
  const exif = head.exif && exifForStill(head.exif, width, height);
  // The canvas has turned colours to sRGB; planes are still those of the file's profile.
  const icc = road === 'planes' && head.icc.length > 0 ? head.icc : null;
  return jpegWith(new Uint8Array(await blob.arrayBuffer()), exif, icc);
}

async function mergePhotos({photos, settings}) {
  const start = performance.now();
  const library = await loadLibrary();
  const loaded = performance.now();
  let burst = null;
  const road = await decodePhotos(photos, (i, {width, height, put}) => {
    checkSize(width, height);
    burst ??= new Burst(library, width, height, photos.length);
    if (burst.width !== width || burst.height !== height) {
      throw new Error(`${photos[i].name} has another size than the other photos`);
    }
    put(burst.frame(i));
    const step = Math.max(1, Math.round(Math.max(width, height) / THUMBNAIL));
    postMessage({kind: 'decoded', index: i, thumbnail: rgbaOf(burst.frame(i), width, height, step)});
  });
  const decoded = performance.now();
  const frames = burst.merge(settings, percent => postMessage({kind: 'progress', percent}));
  const merged = performance.now();
  const base = frames.findIndex(frame => frame.order === 0);
  const {width, height} = burst;
  const still = await encode(burst.result(), width, height, photos[base], road);
  const encoded = performance.now();
  postMessage({
    kind: 'done', frames, base, still, width, height, road, threads: library.threads,
    times: {load: loaded - start, decode: decoded - loaded, merge: merged - decoded, encode: encoded - merged},
  });
}

addEventListener('message', async event => {
  try {
    await mergePhotos(event.data);
  } catch (error) {
    postMessage({kind: 'failed', message: error.message});
  }
});

// Photos to NV21 frames, upright. Two roads:
//   planes  JPEG files of 4:2:0, where the browser has ImageDecoder: the samples of the file, colours of its own profile
//   canvas  everything that the browser decodes: through RGB, sRGB
// All photos of a burst go the same road.

import {putI420, putRgba} from './planes.js';

const BT601 = ['smpte170m', 'bt470bg'];

async function planesOf(file) {
  if (file.type !== 'image/jpeg' || typeof ImageDecoder === 'undefined') return null;
  const decoder = new ImageDecoder({type: file.type, data: await file.arrayBuffer(), preferAnimation: false});
  try {
    const {image} = await decoder.decode();
    try {
      const {fullRange, matrix} = image.colorSpace;
      if (image.format !== 'I420' || !fullRange || !BT601.includes(matrix)) return null;
      const samples = new Uint8Array(image.allocationSize());
      const layouts = await image.copyTo(samples);
      return {samples, layouts, width: image.visibleRect.width, height: image.visibleRect.height};
    } finally {
      image.close();
    }
  } catch {
    return null;  // the canvas tells what is wrong, if anything is
  } finally {
    decoder.close();
  }
}

// {width, height, put(nv21)}; null where the photo cannot go this road.
async function byPlanes(photo) {
  const planes = await planesOf(photo.file);
  if (!planes) return null;
  const {orientation} = photo;
  const {samples, layouts, width: w, height: h} = planes;
  if (orientation !== 1 && (w | h) & 1) return null;  // chroma would lie between the pixels
  const [width, height] = orientation > 4 ? [h, w] : [w, h];
  return {width, height, put: nv21 => putI420(nv21, samples, layouts, w, h, orientation)};
}

let canvas = null;

async function byCanvas(photo) {
  let bitmap = null;
  try {
    bitmap = await createImageBitmap(photo.file, {imageOrientation: 'from-image'});
  } catch {
    throw new Error(`${photo.name} cannot be decoded by this browser`);
  }
  const {width, height} = bitmap;
  const put = nv21 => {
    canvas ??= new OffscreenCanvas(width, height);
    if (canvas.width !== width || canvas.height !== height) Object.assign(canvas, {width, height});
    const context = canvas.getContext('2d', {willReadFrequently: true, alpha: false});
    context.drawImage(bitmap, 0, 0);
    bitmap.close();
    putRgba(nv21, context.getImageData(0, 0, width, height).data, width, height);
  };
  return {width, height, put};
}

// Whether all photos could go this road.
async function go(road, photos, each, parallel) {
  let next = 0;
  let passable = true;
  const work = async () => {
    while (passable && next < photos.length) {
      const i = next++;
      const decoded = await road(photos[i]);
      if (!decoded) passable = false;
      if (passable) each(i, decoded);
    }
  };
  await Promise.all(Array.from({length: parallel}, work));
  return passable;
}

// Decodes several photos at a time and calls each(i, {width, height, put}) for them in no particular order; put(nv21),
// to be called there and then, fills a frame. Where one road turns out to be closed, each is called anew for all photos.
// Returns the name of the road.
export async function decodePhotos(photos, each, parallel = 3) {
  if (await go(byPlanes, photos, each, parallel)) return 'planes';
  await go(byCanvas, photos, each, parallel);
  return 'canvas';
}

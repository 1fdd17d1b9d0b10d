// Merges photos into a canvas, the shortest way a page can take; put both files next to those of web/dist. A page that
// must not freeze does this in a worker, as web/worker.js does.

import {Burst, loadLibrary} from './burst.js';
import {decodePhotos} from './decoder.js';
import {readPhoto} from './picture_file.js';
import {rgbaOf} from './planes.js';
import {usualSettings} from './settings.js';

const status = document.querySelector('[role=status]');

async function merge(files) {
  const photos = await Promise.all(files.map(readPhoto));
  const library = await loadLibrary({threads: 1});
  let burst = null;
  await decodePhotos(photos, (i, {width, height, put}) => {
    burst ??= new Burst(library, width, height, photos.length);
    put(burst.frame(i));
  });
  const frames = burst.merge(usualSettings());
  const canvas = document.querySelector('canvas');
  Object.assign(canvas, {width: burst.width, height: burst.height});
  canvas.getContext('2d').putImageData(rgbaOf(burst.result(), burst.width, burst.height), 0, 0);
  burst.close();
  status.textContent = `${frames.filter(frame => frame.status === 0).length} of ${frames.length} photos merged`;
}

document.querySelector('input').addEventListener('change', event => {
  merge([...event.target.files]).catch(error => {
    status.textContent = error.message;
  });
});

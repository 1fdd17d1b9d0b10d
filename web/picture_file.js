// Picture files without their pixels: the size, EXIF and ICC profile of JPEG and PNG files, and JPEG files with those of
// another. Other kinds tell nothing here; the browser may still decode them.

import {exifShot} from './exif.js';

const FIRST_LOOK = 1 << 16;
const LONGEST_HEAD = 1 << 26;
const EXIF = 'Exif\0\0';
const ICC = 'ICC_PROFILE\0';
const PNG = '\x89PNG\r\n\x1A\n';

function textAt(bytes, at, length) {
  return String.fromCharCode(...bytes.subarray(at, at + length));
}

// Calls each(code, begin, end) for the segments before the pixels; begin is that of the marker. Whether the head is
// over, for good or because it is damaged; otherwise it goes on past the bytes.
function walkJpeg(bytes, each) {
  let at = 2;
  while (at + 4 <= bytes.length) {
    if (bytes[at] !== 0xFF) return true;
    const code = bytes[at + 1];
    if (code === 0xFF || code === 0x01) {  // fill, or a marker without a length
      at += code === 0xFF ? 1 : 2;
      continue;
    }
    const length = bytes[at + 2] << 8 | bytes[at + 3];
    if (code === 0xDA || code === 0xD9 || length < 2) return true;
    if (at + 2 + length > bytes.length) return false;
    each(code, at, at + 2 + length);
    at += 2 + length;
  }
  return false;
}

function isExif(bytes, code, begin) {
  return code === 0xE1 && textAt(bytes, begin + 4, EXIF.length) === EXIF;
}
function isIcc(bytes, code, begin) {
  return code === 0xE2 && textAt(bytes, begin + 4, ICC.length) === ICC;
}

function readJpeg(bytes, head) {
  return walkJpeg(bytes, (code, begin, end) => {
    if (code >= 0xC0 && code <= 0xCF && ![0xC4, 0xC8, 0xCC].includes(code) && end - begin >= 10) {
      head.height = bytes[begin + 5] << 8 | bytes[begin + 6];
      head.width = bytes[begin + 7] << 8 | bytes[begin + 8];
    } else if (isExif(bytes, code, begin)) {
      head.exif ??= bytes.slice(begin + 4 + EXIF.length, end);
    } else if (isIcc(bytes, code, begin)) {
      head.icc.push(bytes.slice(begin, end));
    }
  });
}

function readPng(bytes, head) {
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  let at = PNG.length;
  while (at + 12 <= bytes.length) {
    const length = view.getUint32(at);
    const kind = textAt(bytes, at + 4, 4);
    if (kind === 'IDAT' || kind === 'IEND' || length > LONGEST_HEAD) return true;
    if (at + 12 + length > bytes.length) return false;
    if (kind === 'IHDR' && length >= 8) {
      head.width = view.getUint32(at + 8);
      head.height = view.getUint32(at + 12);
    } else if (kind === 'eXIf') {
      head.exif = bytes.slice(at + 8, at + 8 + length);
    }
    at += 12 + length;
  }
  return false;
}

// {kind, width, height, exif, icc}: kind 'jpeg', 'png' or ''; sides as stored, 0 where they are not known; exif the
// block or null; icc the segments of a JPEG file that hold its profile.
export async function readHead(file) {
  for (let wanted = FIRST_LOOK;; wanted *= 4) {
    const bytes = new Uint8Array(await file.slice(0, wanted).arrayBuffer());
    const kind = bytes[0] === 0xFF && bytes[1] === 0xD8 ? 'jpeg' : textAt(bytes, 0, PNG.length) === PNG ? 'png' : '';
    const head = {kind, width: 0, height: 0, exif: null, icc: []};
    const over = kind === 'jpeg' ? readJpeg(bytes, head) : kind === 'png' ? readPng(bytes, head) : true;
    if (over || wanted >= Math.min(file.size, LONGEST_HEAD)) return head;
  }
}

// The photo that groupPhotos takes, with its file. Without a time in its EXIF it has that of the file, in local time.
export async function readPhoto(file) {
  const {width, height, exif} = await readHead(file);
  const shot = exifShot(exif ?? new Uint8Array());
  const photo = {...shot, file, name: file.name, width, height};
  if (photo.time === null) {
    photo.time = (file.lastModified - new Date(file.lastModified).getTimezoneOffset() * 60000) * 1000;
    photo.wholeSeconds = false;
  }
  return photo;
}

// The JPEG file with this EXIF block and these segments of a profile (each may be null) in place of its own.
export function jpegWith(bytes, exif, icc) {
  const parts = [bytes.subarray(0, 2)];
  if (exif && exif.length + EXIF.length + 2 <= 0xFFFF) {
    const length = exif.length + EXIF.length + 2;
    const header = [0xFF, 0xE1, length >> 8, length & 0xFF, ...[...EXIF].map(letter => letter.charCodeAt(0))];
    parts.push(new Uint8Array(header), exif);
  }
  parts.push(...icc ?? []);
  let rest = 2;
  walkJpeg(bytes, (code, begin, end) => {
    const replaced = (exif && (code === 0xE0 || isExif(bytes, code, begin))) || (icc && isIcc(bytes, code, begin));
    if (begin > rest) parts.push(bytes.subarray(rest, begin));
    if (!replaced) parts.push(bytes.subarray(begin, end));
    rest = end;
  });
  parts.push(bytes.subarray(rest));
  return new Blob(parts, {type: 'image/jpeg'});
}

// Pixels from and to NV21 (see burst.js), full-range BT.601 in fixed point of 16 bits.

// How the stored picture w x h is read so that it lies upright, for the orientations of EXIF, 1 to 8: the sample of
// column x and row y is at + x * right + y * down.
function turn(orientation, w, h, pitch) {
  const last = (h - 1) * pitch;
  return [
    {at: 0, right: 1, down: pitch}, {at: w - 1, right: -1, down: pitch},
    {at: last + w - 1, right: -1, down: -pitch}, {at: last, right: 1, down: -pitch},
    {at: 0, right: pitch, down: 1}, {at: last, right: -pitch, down: 1},
    {at: last + w - 1, right: -pitch, down: -1}, {at: w - 1, right: pitch, down: -1},
  ][orientation - 1];
}

// Samples of a stored plane w x h, turned, to every step-th byte of rows.
function putPlane(to, begin, step, toPitch, from, layout, w, h, orientation) {
  const {at, right, down} = turn(orientation, w, h, layout.stride);
  const [width, height] = orientation > 4 ? [h, w] : [w, h];
  for (let y = 0; y < height; ++y) {
    let source = layout.offset + at + y * down;
    const end = begin + y * toPitch + width * step;
    for (let x = begin + y * toPitch; x < end; x += step) {
      to[x] = from[source];
      source += right;
    }
  }
}

// i420: three planes of a picture w x h as stored, in one block, by their {offset, stride}. Both sides are even unless
// orientation is 1.
export function putI420(nv21, i420, layouts, w, h, orientation) {
  const [width, height] = orientation > 4 ? [h, w] : [w, h];
  const pitch = width + (width & 1);
  const half = [(w + 1) >> 1, (h + 1) >> 1];
  putPlane(nv21, 0, 1, pitch, i420, layouts[0], w, h, orientation);
  putPlane(nv21, pitch * height + 1, 2, pitch, i420, layouts[1], ...half, orientation);
  putPlane(nv21, pitch * height, 2, pitch, i420, layouts[2], ...half, orientation);
}

// rgba: bytes R, G, B, A without padding. Chroma is that of the mean of 2 x 2 pixels; the last column and row of odd
// sides count twice.
export function putRgba(nv21, rgba, width, height) {
  const pitch = width + (width & 1);
  for (let y = 0; y < height; ++y) {
    let from = 4 * width * y;
    for (let to = pitch * y, end = to + width; to < end; ++to, from += 4) {
      nv21[to] = (19595 * rgba[from] + 38470 * rgba[from + 1] + 7471 * rgba[from + 2] + 32768) >> 16;
    }
  }
  let to = pitch * height;
  for (let y = 0; y < height; y += 2) {
    const upper = 4 * width * y;
    const lower = y + 1 < height ? upper + 4 * width : upper;
    for (let x = 0; x < width; x += 2, to += 2) {
      const left = 4 * x;
      const right = x + 1 < width ? left + 4 : left;
      const [a, b, c, d] = [upper + left, upper + right, lower + left, lower + right];
      const red = rgba[a] + rgba[b] + rgba[c] + rgba[d];
      const green = rgba[a + 1] + rgba[b + 1] + rgba[c + 1] + rgba[d + 1];
      const blue = rgba[a + 2] + rgba[b + 2] + rgba[c + 2] + rgba[d + 2];
      const half = (128 << 18) + (1 << 17);
      nv21[to] = Math.min((32768 * red - 27439 * green - 5329 * blue + half) >> 18, 255);
      nv21[to + 1] = Math.min((32768 * blue - 11059 * red - 21709 * green + half) >> 18, 255);
    }
  }
}

// The picture as the bytes of an ImageData, made smaller by taking every step-th pixel of every step-th row. A pair of
// chroma holds for its four pixels: an encoder that halves chroma again then finds it unchanged.
export function rgbaOf(nv21, width, height, step = 1) {
  const pitch = width + (width & 1);
  const [columns, rows] = [Math.ceil(width / step), Math.ceil(height / step)];
  const rgba = new Uint8ClampedArray(4 * columns * rows);
  let to = 0;
  for (let y = 0; y < height; y += step) {
    const luma = pitch * y;
    const chroma = pitch * (height + (y >> 1));
    for (let x = 0; x < width; x += step, to += 4) {
      const bright = (nv21[luma + x] << 16) + 32768;
      const v = nv21[chroma + (x & ~1)] - 128;
      const u = nv21[chroma + (x | 1)] - 128;
      rgba[to] = (bright + 91881 * v) >> 16;
      rgba[to + 1] = (bright - 22554 * u - 46802 * v) >> 16;
      rgba[to + 2] = (bright + 116130 * u) >> 16;
      rgba[to + 3] = 255;
    }
  }
  return new ImageData(rgba, columns, rows);
}

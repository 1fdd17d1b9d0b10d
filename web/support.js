// What the page needs of a browser, in words for what is missing.

// A function that counts the bits of a vector's bytes.
const SIMD = [0, 97, 115, 109, 1, 0, 0, 0, 1, 5, 1, 96, 0, 1, 123, 3, 2, 1, 0, 10, 10, 1, 8, 0, 65, 0, 253, 15, 253, 98,
  11];

export function missingFeatures() {
  const needed = [
    ['WebAssembly with SIMD', typeof WebAssembly === 'object' && WebAssembly.validate(new Uint8Array(SIMD))],
    ['workers', typeof Worker === 'function'],
    ['drawing in workers (OffscreenCanvas)', typeof OffscreenCanvas === 'function' &&
      'convertToBlob' in OffscreenCanvas.prototype],
    ['decoding in workers (createImageBitmap)', typeof createImageBitmap === 'function'],
  ];
  return needed.filter(([, there]) => !there).map(([name]) => name);
}

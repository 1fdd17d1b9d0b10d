// Merges raw bursts with both builds in node and compares every byte with the tool's results.
//
//   node same_bytes.mjs DIST BURST      BURST holds frame*.nv21 of 1280x960, exact.nv21 and
//                                       fine.nv21, and the tool's reports on these, exact.json and fine.json
import assert from 'node:assert/strict';
import {readFileSync, readdirSync} from 'node:fs';
import {createRequire} from 'node:module';
import path from 'node:path';
import {pathToFileURL} from 'node:url';

const [dist, folder] = process.argv.slice(2).map(each => path.resolve(each));
const [width, height] = [1280, 960];
const raws = readdirSync(folder).filter(name => /^frame.*\.nv21$/.test(name)).sort();

// What the linker's output for node expects of a module.
globalThis.require = createRequire(import.meta.url);
globalThis.__dirname = dist;
const {Burst, BurstError, Stopped, loadLibrary} = await import(pathToFileURL(path.join(dist, 'burst.js')));
const {usualSettings} = await import(pathToFileURL(path.join(dist, 'settings.js')));

function openBurst(library) {
  const burst = new Burst(library, width, height, raws.length);
  raws.forEach((name, i) => burst.frame(i).set(readFileSync(path.join(folder, name))));
  return burst;
}

function test(what, body) {
  try {
    body();
    console.log(`ok      ${what}`);
  } catch (error) {
    console.log(`FAILED  ${what}: ${error.stack}`);
    process.exitCode = 1;
  }
}

for (const threads of [1, 3]) {
  const wasm = threads > 1 ? 'tessaline4-threads.wasm' : 'tessaline4.wasm';
  const library = await loadLibrary({threads, wasmBinary: readFileSync(path.join(dist, wasm))});

  for (const fine of [false, true]) {
    test(`${threads} threads, fine ${fine}: the bytes of the native library`, () => {
      const burst = openBurst(library);
      const told = [];
      const frames = burst.merge(usualSettings(fine), percent => void told.push(percent));
      const native = path.join(folder, fine ? 'fine' : 'exact');
      const report = JSON.parse(readFileSync(`${native}.json`));
      assert.equal(Buffer.compare(burst.result(), readFileSync(`${native}.nv21`)), 0);
      assert.deepEqual(frames.map(frame => frame.status === 0), report.frames.map(({status}) => status === 'merged'));
      assert.equal(frames[report.base].order, 0);
      assert.deepEqual(told, [...told].sort((a, b) => a - b));
      assert.equal(told.at(-1), 100);
      assert.ok(frames.every(frame => ('share' in frame) === fine));
      burst.close();
    });
  }

  test(`${threads} threads: a stop, an error and a throw leave the module in order`, () => {
    const held = library.module._malloc(1);
    library.module._free(held);
    const burst = openBurst(library);
    assert.throws(() => burst.merge(usualSettings(), percent => percent >= 30), Stopped);
    assert.throws(() => burst.merge({sharpness: 10001}), error => error instanceof BurstError &&
      error.status === 0x80000001);
    assert.throws(() => burst.merge(usualSettings(), () => {
      throw new RangeError('of the caller');
    }), RangeError);
    burst.close();
    const small = new Burst(library, 320, 240, 2);
    assert.throws(() => small.merge({}), BurstError);
    small.close();
    const again = library.module._malloc(1);
    assert.equal(again, held);
    library.module._free(again);
  });
}
process.exit();  // the threads of the pool would wait for ever

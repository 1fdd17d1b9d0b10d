// EXIF blocks: a TIFF header ("II*\0" or "MM\0*"), directories of tags, and the values they point to, all by offsets
// from the first byte (CIPA DC-008, "Exchangeable image file format"). A block may hold anything: what lies outside it
// reads as absent.

const TAG = {
  make: 0x010F, model: 0x0110, orientation: 0x0112, exposureTime: 0x829A, photo: 0x8769, iso: 0x8827,
  timeOriginal: 0x9003, subSecondsOriginal: 0x9291, pixelWidth: 0xA002, pixelHeight: 0xA003, imageWidth: 0x0100,
  imageHeight: 0x0101,
};
const TYPE = {text: 2, short: 3, long: 4, rational: 5, directory: 13};

class Block {
  #view;
  #little;

  constructor(bytes) {
    this.#view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
    this.#little = bytes[0] === 0x49;
    this.good = bytes.length >= 8 && bytes[0] === bytes[1] && (this.#little || bytes[0] === 0x4D) && this.#short(2) === 42;
  }

  // Null for none.
  directory(at) {
    if (!this.good || at === null || !this.#holds(at, 2)) return null;
    const count = this.#short(at);
    if (!this.#holds(at, 2 + 12 * count)) return null;
    const entries = new Map();
    for (let i = 0; i < count; ++i) {
      const entry = at + 2 + 12 * i;
      const tag = this.#short(entry);
      if (!entries.has(tag)) {
        entries.set(tag, {type: this.#short(entry + 2), count: this.#long(entry + 4), at: entry + 8});
      }
    }
    return {entries, linkAt: at + 2 + 12 * count};
  }

  first() {
    return this.directory(this.good ? this.#long(4) : null);
  }

  number(directory, tag) {
    const entry = directory?.entries.get(tag);
    if (entry?.count !== 1 || ![TYPE.short, TYPE.long, TYPE.directory].includes(entry.type)) return null;
    return entry.type === TYPE.short ? this.#short(entry.at) : this.#long(entry.at);
  }

  // Without the zero at its end and padding.
  text(directory, tag) {
    const entry = directory?.entries.get(tag);
    if (!entry || entry.type !== TYPE.text) return '';
    const at = entry.count <= 4 ? entry.at : this.#long(entry.at);
    if (!this.#holds(at, entry.count)) return '';
    let text = '';
    for (let i = 0; i < entry.count && this.#view.getUint8(at + i) !== 0; ++i) {
      text += String.fromCharCode(this.#view.getUint8(at + i));
    }
    return text.replace(/ +$/, '');
  }

  // Above 0, else null.
  ratio(directory, tag) {
    const entry = directory?.entries.get(tag);
    if (!entry || entry.type !== TYPE.rational || entry.count !== 1) return null;
    const at = this.#long(entry.at);
    return this.#holds(at, 8) ? this.#long(at) / this.#long(at + 4) || null : null;
  }

  // Overwrites a number that is there and has room.
  setNumber(directory, tag, value) {
    const entry = directory?.entries.get(tag);
    if (!entry || entry.count !== 1) return;
    if (entry.type === TYPE.short && value <= 0xFFFF) this.#view.setUint16(entry.at, value, this.#little);
    if (entry.type === TYPE.long) this.#view.setUint32(entry.at, value, this.#little);
  }

  // Cuts the chain of directories, where the next one describes a thumbnail.
  endAfter(directory) {
    if (this.#holds(directory.linkAt, 4)) this.#view.setUint32(directory.linkAt, 0);
  }

  #holds(at, length) {
    return at + length <= this.#view.byteLength;
  }
  #short(at) {
    return this.#view.getUint16(at, this.#little);
  }
  #long(at) {
    return this.#view.getUint32(at, this.#little);
  }
}

// Of "2024:05:31 12:30:59": microseconds since 1970, as if the camera stood in Greenwich; null for another text.
function parseTime(text, subSeconds) {
  const parts = /^ *(\d{1,4}): *(\d{1,2}): *(\d{1,2}) +(\d{1,2}): *(\d{1,2}): *(\d{1,2})/.exec(text)?.slice(1).map(Number);
  if (!parts) return null;
  const [year, month, day, hour, minute, second] = parts;
  if (year < 1 || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) return null;
  const date = new Date(0);
  date.setUTCFullYear(year, month - 1, day);
  date.setUTCHours(hour, minute, second);
  return date.getTime() * 1000 + Number(/^\d{0,6}/.exec(subSeconds)[0].padEnd(6, '0'));
}

// How a picture was taken, as far as the block tells it. time: see parseTime.
export function exifShot(bytes) {
  const block = new Block(bytes);
  const main = block.first();
  const photo = block.directory(block.number(main, TAG.photo));
  const subSeconds = block.text(photo, TAG.subSecondsOriginal);
  const orientation = block.number(main, TAG.orientation) ?? 1;
  return {
    make: block.text(main, TAG.make),
    model: block.text(main, TAG.model),
    orientation: orientation >= 1 && orientation <= 8 ? orientation : 1,
    time: parseTime(block.text(photo, TAG.timeOriginal), subSeconds),
    wholeSeconds: !/^\d/.test(subSeconds),
    exposureSeconds: block.ratio(photo, TAG.exposureTime),
    iso: block.number(photo, TAG.iso) || null,
  };
}

// The block made right for a new picture that lies upright: its orientation, where one is told, is 1, its size the new
// one, and the thumbnail, which shows the old picture, is out of the chain. Every byte stays where it is, since makers'
// notes point into the block by offsets that only their maker knows.
export function exifForStill(bytes, width, height) {
  const copy = bytes.slice();
  const block = new Block(copy);
  const main = block.first();
  if (!main) return null;
  const photo = block.directory(block.number(main, TAG.photo));
  block.setNumber(main, TAG.orientation, 1);
  block.setNumber(main, TAG.imageWidth, width);
  block.setNumber(main, TAG.imageHeight, height);
  block.setNumber(photo, TAG.pixelWidth, width);
  block.setNumber(photo, TAG.pixelHeight, height);
  block.endAfter(main);
  return copy;
}

// Makes a browser's picture small enough for a repository: at most 256 colours, one byte a pixel, well compressed.
import { deflateSync, inflateSync } from 'node:zlib';

const SIGNATURE = Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]);
const COLOURS = 256;
const ALIKE = 60; // the square of the distance between two colours
const CHANNELS = { 2: 3, 6: 4 }; // by the colour types that a browser writes: with and without opacity

const CRC_TABLE = Uint32Array.from({ length: 256 }, (_, byte) => {
  let value = byte;
  for (let bit = 0; bit < 8; bit++) {
    value = value & 1 ? (value >>> 1) ^ 0xedb88320 : value >>> 1;
  }
  return value;
});
function crc32(data) {
  let value = 0xffffffff;
  for (const byte of data) {
    value = CRC_TABLE[(value ^ byte) & 0xff] ^ (value >>> 8);
  }
  return (value ^ 0xffffffff) >>> 0;
}

function* chunks(png) {
  for (let at = SIGNATURE.length; at < png.length;) {
    const length = png.readUInt32BE(at);
    yield [png.toString('latin1', at + 4, at + 8), png.subarray(at + 8, at + 8 + length)];
    at += 12 + length;
  }
}

function chunk(name, data) {
  const body = Buffer.concat([Buffer.from(name, 'latin1'), data]);
  const frame = Buffer.alloc(8);
  frame.writeUInt32BE(data.length, 0);
  frame.writeUInt32BE(crc32(body), 4);
  return Buffer.concat([frame.subarray(0, 4), body, frame.subarray(4)]);
}

function paeth(left, above, corner) {
  const guess = left + above - corner;
  const [a, b, c] = [left, above, corner].map((value) => Math.abs(guess - value));
  return a <= b && a <= c ? left : b <= c ? above : corner;
}

// The pixels as numbers 0xRRGGBB, row by row.
function pixelsOf(data, width, height, channels) {
  const stride = width * channels;
  const pixels = new Uint32Array(width * height);
  let before = Buffer.alloc(stride);
  for (let y = 0; y < height; y++) {
    const filter = data[y * (stride + 1)];
    const row = data.subarray(y * (stride + 1) + 1, (y + 1) * (stride + 1));
    for (let x = 0; x < stride; x++) {
      const left = x >= channels ? row[x - channels] : 0;
      const corner = x >= channels ? before[x - channels] : 0;
      row[x] += [0, left, before[x], (left + before[x]) >> 1, paeth(left, before[x], corner)][filter];
    }
    for (let x = 0; x < width; x++) {
      pixels[y * width + x] = row.readUIntBE(x * channels, 3);
    }
    before = row;
  }
  return pixels;
}

// The most frequent colours, but of those that look alike only one; and for each colour the number of the nearest one.
function paletteOf(pixels) {
  const counts = new Map();
  for (const colour of pixels) {
    counts.set(colour, (counts.get(colour) ?? 0) + 1);
  }
  const parts = (colour) => [colour >> 16, (colour >> 8) & 0xff, colour & 0xff];
  const distance = (one, other) => parts(one).reduce((sum, part, index) => sum + (part - parts(other)[index]) ** 2, 0);
  const palette = [];
  for (const colour of [...counts.keys()].sort((one, other) => counts.get(other) - counts.get(one))) {
    if (palette.length < COLOURS && palette.every((one) => distance(one, colour) > ALIKE)) {
      palette.push(colour);
    }
  }
  const nearest = new Map(palette.map((colour, index) => [colour, index]));
  for (const colour of counts.keys()) {
    if (!nearest.has(colour)) {
      const far = palette.map((one) => distance(one, colour));
      nearest.set(colour, far.indexOf(Math.min(...far)));
    }
  }
  return [palette, nearest];
}

export function smaller(png) {
  const parts = [...chunks(png)];
  const header = Buffer.from(parts.find(([name]) => name === 'IHDR')[1]);
  const [width, height, channels] = [header.readUInt32BE(0), header.readUInt32BE(4), CHANNELS[header[9]]];
  const data = inflateSync(Buffer.concat(parts.filter(([name]) => name === 'IDAT').map(([, part]) => part)));
  const pixels = pixelsOf(data, width, height, channels);
  const [palette, nearest] = paletteOf(pixels);
  const rows = Buffer.alloc((width + 1) * height);
  pixels.forEach((colour, index) => {
    rows[Math.floor(index / width) * (width + 1) + 1 + (index % width)] = nearest.get(colour);
  });
  header[9] = 3; // a palette
  const colours = Buffer.concat(palette.map((colour) => Buffer.from([colour >> 16, colour >> 8, colour])));
  return Buffer.concat([
    SIGNATURE,
    chunk('IHDR', header),
    chunk('PLTE', colours),
    chunk('IDAT', deflateSync(rows, { level: 9, memLevel: 9 })),
    chunk('IEND', Buffer.alloc(0)),
  ]);
}

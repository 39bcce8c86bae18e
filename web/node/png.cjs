// PNG files as libpng writes them when it is to be fast: without filters, compressed at level 3, in chunks of
// 8 KiB. pako compresses byte for byte as zlib does, which Node's own zlib does not.

'use strict';

const { deflate } = require('pako');

const SIGNATURE = Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]);
const TRUECOLOR_OF_8_BITS = [8, 2, 0, 0, 0];
const MOST_IN_CHUNK = 8192;

const CRC_TABLE = Array.from({ length: 256 }, (_, byte) => {
    let crc = byte;
    for (let bit = 0; bit < 8; bit += 1) {
        crc = crc & 1 ? (crc >>> 1) ^ 0xedb88320 : crc >>> 1;
    }
    return crc;
});

function numberOf4Bytes(number) {
    const bytes = Buffer.alloc(4);
    bytes.writeUInt32BE(number >>> 0);
    return bytes;
}

function chunk(type, data) {
    const body = Buffer.concat([Buffer.from(type, 'latin1'), data]);
    let crc = 0xffffffff;
    for (const byte of body) {
        crc = CRC_TABLE[(crc ^ byte) & 0xff] ^ (crc >>> 8);
    }
    return Buffer.concat([numberOf4Bytes(data.length), body, numberOf4Bytes(~crc)]);
}

// Of pixels, 0xRRGGBB, row by row.
exports.pngOf = (pixels, width, height) => {
    const rows = Buffer.alloc(height * (1 + width * 3));
    let at = 0;
    pixels.forEach((pixel, index) => {
        at += index % width === 0 ? 1 : 0; // no filter
        rows.writeUIntBE(pixel, at, 3);
        at += 3;
    });
    const packed = Buffer.from(deflate(rows, { level: 3 }));
    const parts = [];
    for (let begin = 0; begin < packed.length; begin += MOST_IN_CHUNK) {
        parts.push(chunk('IDAT', packed.subarray(begin, begin + MOST_IN_CHUNK)));
    }
    const size = Buffer.concat([
        numberOf4Bytes(width),
        numberOf4Bytes(height),
        Buffer.from(TRUECOLOR_OF_8_BITS),
    ]);
    return Buffer.concat([
        SIGNATURE,
        chunk('IHDR', size),
        chunk('sRGB', Buffer.from([0])),
        ...parts,
        chunk('IEND', Buffer.alloc(0)),
    ]);
};

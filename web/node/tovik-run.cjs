#!/usr/bin/env node
// tovik-run as WebAssembly, with the options and files of the other one. TOVIK_WASM is the folder of the
// programs, where that is not build/web/wasm. An engine that knows tail calls, if it is asked to, runs the program
// that has them.

'use strict';

const path = require('node:path');
const v8 = require('node:v8');

const { pngOf } = require('./png.cjs');

// (func return_call 0)
const WITH_TAIL_CALL = new Uint8Array([
    0, 0x61, 0x73, 0x6d, 1, 0, 0, 0, 1, 4, 1, 0x60, 0, 0, 3, 2, 1, 0, 10, 6, 1, 4, 0, 0x12, 0, 0x0b,
]);

v8.setFlagsFromString('--experimental-wasm-return-call');
globalThis.tovikPng = pngOf;
// With it, the program would not look for its file on the disk.
globalThis.fetch = undefined;
const folder = process.env.TOVIK_WASM ?? path.join(__dirname, '../../build/web/wasm');
const dispatch = WebAssembly.validate(WITH_TAIL_CALL) ? 'tail' : 'loop';
require(path.resolve(folder, `tovik-run-${dispatch}.js`));

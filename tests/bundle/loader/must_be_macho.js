// Required first by every node of a run (NODE_OPTIONS): a module is taken only if loading it has mapped
// the code of the bundle that PELLMAR_MACHO names. Without this a test that looks into another folder
// would silently take the Linux build, and pass. Each load is a line of the file PELLMAR_MACHO_LOADS.
'use strict';

const fs = require('fs');
const path = require('path');

const bundle = fs.realpathSync(process.env.PELLMAR_MACHO);
/** The add-ons of the tests themselves. */
const others = ['host.node', 'native.node'];
const load = process.dlopen;

/** How often the bundle's code is mapped in this process. */
const timesMapped = () => fs.readFileSync('/proc/self/maps', 'utf8').split('\n')
  .filter((line) => / r-xp /.test(line) && line.endsWith(` ${bundle}`)).length;

process.dlopen = function dlopen(target, file, ...flags) {
  const before = timesMapped();
  load.call(this, target, file, ...flags);
  if (others.includes(path.basename(file))) return;
  if (timesMapped() !== before + 1) {
    throw new Error(`${file} has been loaded, but not the bundle ${bundle}`);
  }
  fs.appendFileSync(process.env.PELLMAR_MACHO_LOADS, `${process.pid} ${process.execPath}\n`);
};

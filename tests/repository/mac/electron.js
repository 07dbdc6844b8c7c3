// Gives the application named on the command line what it asks of `electron`.
'use strict';

const fs = require('fs');
const Module = require('module');
const path = require('path');

const { MAC_PROCESSOR, MAC_CRASH, PELLMAR_CLIENT } = process.env;
if (MAC_PROCESSOR) Object.defineProperty(process, 'arch', { value: MAC_PROCESSOR });

const electron = {
  app: {
    on() {},
    whenReady: async () => {},
    quit: () => {
      if (MAC_CRASH === 'always' || (MAC_CRASH === 'with the client' && PELLMAR_CLIENT)) {
        process.kill(process.pid, 'SIGTRAP');
      }
      app.quit();
    },
  },
};
const load = Module._load;
Module._load = (name, ...others) => (name === 'electron' ? electron : load(name, ...others));

const main = path.resolve(process.argv[2]);
require(fs.statSync(main).isDirectory()
  ? path.join(main, require(path.join(main, 'package.json')).main) : main);

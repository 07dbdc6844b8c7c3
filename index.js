'use strict';

const path = require('path');

function load() {
  try {
    return require('node-gyp-build')(__dirname);
  } catch (error) {
    if (!/^No native build was found/.test(error.message)) throw error;
    throw new Error(
      `Pellmar: there is no build of the client for ${process.platform} on ${process.arch} ` +
        `with module version ${process.versions.modules} in ${path.resolve(__dirname)}.`
    );
  }
}

module.exports = load();

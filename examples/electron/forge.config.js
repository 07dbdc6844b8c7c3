'use strict';

const fs = require('fs');
const path = require('path');

const languages = path.join(__dirname, 'node_modules/pellmar/languages');
const client = '**/node_modules/pellmar/*.node';
// Your "Developer ID Application: …". Without it the application is for this Mac alone.
const identity = process.env.SIGNING_IDENTITY;

module.exports = {
  packagerConfig: {
    appBundleId: 'com.example.editor',
    icon: path.join(__dirname, 'build/icon'),
    // Out of the archive, into which the system's loader cannot look.
    asar: { unpack: client },
    ignore: [/^\/(build|test|out|dist)($|\/)/],
    extraResource: fs.readdirSync(languages).map((folder) => path.join(languages, folder)),
    // The same file in both builds, which has both processors' code.
    osxUniversal: { x64ArchFiles: client },
    ...(identity && {
      osxSign: {
        identity,
        optionsForFile: () => ({ hardenedRuntime: true, entitlements: path.join(__dirname, 'build/entitlements.plist') }),
      },
      osxNotarize: { keychainProfile: 'notarization' },
    }),
  },
};

// Loads the module's one file. In a clone of the repository scripts/build has put a link to its own build in that
// place. Parses in Node 12.
'use strict';

/** What to tell the application's developer about `error`, or undefined if it says enough. */
function explain(error) {
  // There is none where a bundler has made an ES module of this.
  const folder = typeof __dirname === 'string' ? __dirname : 'its folder';
  const wanted = process.versions.modules;
  const runtime = process.versions.electron
    ? `Electron ${process.versions.electron}`
    : `Node ${process.versions.node}`;
  // The runtime's own message, over several lines.
  const refused = /NODE_MODULE_VERSION\s+(\d+)[^]*NODE_MODULE_VERSION\s+\d+/.exec(error.message);
  if (refused) {
    return (
      `Pellmar: the client in ${folder} is built for module version ${refused[1]}, ` +
      `but ${runtime} takes modules of version ${wanted}. Run it in a runtime of its version, ` +
      `or install a release of the client that is built for ${wanted}.`
    );
  }
  // The runtime's words, and those that bundlers leave in the place of the call.
  if (/^Cannot find module|^Module parse failed|\brequire\b.*"\.\/pellmar\.node"/.test(error.message)) {
    return (
      `Pellmar: there is no pellmar.node in ${folder}. If a bundler has put this code there, ` +
      `make 'pellmar' external and ship node_modules/pellmar with the application. ` +
      `In a clone of the repository scripts/build makes the file.`
    );
  }
  if (process.platform !== 'darwin') {
    return (
      `Pellmar: there is no build of the client for ${process.platform} on ${process.arch} ` +
      `with module version ${wanted} in ${folder}.`
    );
  }
  return undefined;
}

function load() {
  try {
    // A literal, so that packers and bundlers see which file it is.
    return require('./pellmar.node');
  } catch (cause) {
    const message = explain(cause);
    if (message === undefined) throw cause;
    throw Object.defineProperty(new Error(message), 'cause', {
      value: cause, configurable: true, writable: true,
    });
  }
}

const {
  PLShowReleaseNotesWindowIfNeeded,
  PLShowReleaseNotesWindow,
  PLCanShowReleaseNotesWindow,
  PLReportUsageEvent,
  PLGetLastUserEmailSharingResponse,
  PLAskUserToShareEmail,
  PLEnableDebugLogging,
} = load();

// Spelled out, so that `import { PLReportUsageEvent } from 'pellmar'` finds them as well.
module.exports = {
  PLShowReleaseNotesWindowIfNeeded,
  PLShowReleaseNotesWindow,
  PLCanShowReleaseNotesWindow,
  PLReportUsageEvent,
  PLGetLastUserEmailSharingResponse,
  PLAskUserToShareEmail,
  PLEnableDebugLogging,
};

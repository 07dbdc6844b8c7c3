// Loads the build of the module for this system and runtime: the one of the development tree
// (build/Release/), or else the one that the package brings (prebuilds/). Parses in Node 12.
'use strict';

const fs = require('fs');
const path = require('path');
const nodeGypBuild = require('node-gyp-build');

const runtime = process.versions.electron
  ? `Electron ${process.versions.electron}`
  : `Node ${process.versions.node}`;

/** The module versions that the package has builds for on this system, by the files' names. */
function packagedVersions() {
  const prebuilds = path.join(__dirname, 'prebuilds');
  const list = (folder) => (fs.existsSync(folder) ? fs.readdirSync(folder) : []);
  return list(prebuilds)
    .filter((folder) =>
      nodeGypBuild.matchTuple(process.platform, process.arch)(nodeGypBuild.parseTuple(folder)))
    .map((folder) => list(path.join(prebuilds, folder)).map(nodeGypBuild.parseTags))
    .reduce((all, builds) => all.concat(builds), [])
    .filter((tags) => tags && tags.abi)
    .map(({ abi, runtime }) => (runtime ? `${abi} (for ${runtime})` : abi));
}

/** What to tell the application's developer about `error`, or undefined if it says enough. */
function explain(error) {
  const wanted = process.versions.modules;
  // The runtime's own message, over several lines.
  const refused = /NODE_MODULE_VERSION\s+(\d+)[^]*NODE_MODULE_VERSION\s+(\d+)/.exec(error.message);
  const missing = /^No native build was found/.test(error.message);
  const versions = refused ? [refused[1]] : missing ? packagedVersions() : [];
  if (versions.length > 0) {
    return (
      `Pellmar: the client in ${__dirname} is built for module version ${versions.join(' and ')}, ` +
      `but ${runtime} takes modules of version ${wanted}. Run it in a runtime of its version, ` +
      `or install a release of the client that is built for ${wanted}.`
    );
  }
  if (missing) {
    return (
      `Pellmar: there is no build of the client for ${process.platform} on ${process.arch} ` +
      `with module version ${wanted} in ${__dirname}.`
    );
  }
  return undefined;
}

function load() {
  try {
    return nodeGypBuild(__dirname);
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

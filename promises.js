// The functions of `pellmar` under plain names, with promises where there is something to wait for. Parses in Node 12.
'use strict';

const {
  reportUsageEvent,
  showReleaseNotes,
  showReleaseNotesIfNeeded,
  canShowReleaseNotes,
  enableDebugLogging,
  emailSharingAnswer,
  askToShareEmail,
} = require('./with-promises.js')(require('./index.js'), []);

// Spelled out, so that `import { askToShareEmail } from 'pellmar/promises'` finds them as well.
module.exports = {
  reportUsageEvent,
  showReleaseNotes,
  showReleaseNotesIfNeeded,
  canShowReleaseNotes,
  enableDebugLogging,
  emailSharingAnswer,
  askToShareEmail,
};

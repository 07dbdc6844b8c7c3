// What `pellmar/promises` is, over the seven functions of `pellmar` or of `pellmar/fake`. Parses in Node 12.
'use strict';

const answers = ['unknown', 'given', 'postponed'];

/** `waiting` is for those who wait for the window, which answers to one call alone: that which brought it up. */
module.exports = function withPromises(pellmar, waiting) {
  return {
    reportUsageEvent: pellmar.PLReportUsageEvent,
    showReleaseNotes: pellmar.PLShowReleaseNotesWindow,
    showReleaseNotesIfNeeded: pellmar.PLShowReleaseNotesWindowIfNeeded,
    canShowReleaseNotes: pellmar.PLCanShowReleaseNotesWindow,
    enableDebugLogging: pellmar.PLEnableDebugLogging,

    async emailSharingAnswer() {
      return answers[pellmar.PLGetLastUserEmailSharingResponse()];
    },

    async askToShareEmail() {
      let known;
      let hasReturned = false;
      const isAsking = pellmar.PLAskUserToShareEmail((answer) => {
        known = answer;
        if (!hasReturned) return;
        for (const settle of waiting.splice(0)) settle(answers[answer]);
      });
      hasReturned = true;
      // An agent that is gone or wants no more questions takes no window down.
      if (!isAsking && waiting.length === 0) return answers[known];
      return new Promise((resolve) => waiting.push(resolve));
    },
  };
};

// What the application does with the client, apart from Electron, so that it can be tested without it.
'use strict';

/**
 * What the renderer may ask the main process, by channel.
 *
 * @param client `pellmar/promises`, or undefined on other systems than a Mac
 */
function handlers(client) {
  return {
    'sharing:ask': async () => (client ? client.askToShareEmail() : 'unknown'),
    'sharing:answer': async () => (client ? client.emailSharingAnswer() : 'unknown'),
    'usage:report': (_event, name) => {
      // A renderer shows what comes from outside, so it says which event and not what it is called.
      if (client && name in events) client.reportUsageEvent(events[name]);
    },
  };
}

const events = { __proto__: null, export: 'Document exported', print: 'Document printed' };

module.exports = { handlers };

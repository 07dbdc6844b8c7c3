// What a sequence has its script do, besides what `script.js` has: calls whose course is printed as events.
'use strict';

const now = () => Number(process.hrtime.bigint()) / 1e6;

module.exports = (modulePath, nativePath) => {
  const native = require(nativePath);
  if (!native.open(modulePath)) throw new Error('the native threads do not find the module');
  let dark = false;

  const say = (event, call, more) => print({ event, call, at: now(), ...more });
  const ask = (call, inside) => pellmar.PLAskUserToShareEmail((value) => {
    say('callback', call, { value });
    inside?.();
  });
  const kinds = {
    status: () => pellmar.PLGetLastUserEmailSharingResponse(),
    ask: (call) => ask(call),
    'ask-throw': (call) => ask(call, () => { throw new Error('thrown by a callback'); }),
    'ask-again': (call) => ask(call, () => make('ask', `${call}.again`)),
    event: (call) => pellmar.PLReportUsageEvent(call),
    notes: () => pellmar.PLShowReleaseNotesWindow(),
    'notes-if-needed': () => pellmar.PLShowReleaseNotesWindowIfNeeded(),
    'log-on': () => pellmar.PLEnableDebugLogging(true),
    'log-off': () => pellmar.PLEnableDebugLogging(false),
  };

  function make(kind, call) {
    say('called', call, { kind: kind.replace(/-.*/, ''), from: 'script' });
    let value = null;
    try {
      value = kinds[kind](call) ?? null;
    } catch (error) {
      if (error.message !== 'thrown by a callback') throw error;
      // Without a window a callback's exception leaves the call, whose result it takes along.
      value = false;
    }
    say('returned', call, { value });
  }

  process.on('uncaughtException', ({ message, stack }) => {
    if (message !== 'thrown by a callback') {
      process.stderr.write(`${stack}\n`);
      process.exit(1);
    }
  });
  Object.assign(globalThis, {
    native,
    make,
    switchLook: (name) => app.setAppearance(name ?? ((dark = !dark) ? 'dark' : 'light')),
  });
};

// Starts the application, then runs the script named on the command line as node itself would.
// Scripts find the application as the global `app`.
'use strict';

const Module = require('module');
const path = require('path');

const appearances = ['light', 'dark'];

function fail(message, code) {
  process.stderr.write(`${path.basename(process.execPath)}: ${message}\n`);
  process.exit(code);
}

process.argv.splice(1, 1);
if (process.argv.length < 2) fail('no script given', 2);
process.argv[1] = path.resolve(process.argv[1]);

const appearance = process.env.PELLMAR_APPEARANCE;
if (appearance && !appearances.includes(appearance)) {
  fail(`PELLMAR_APPEARANCE is '${appearance}' and can only be light or dark`, 2);
}

// GNUstep asks the C library for the user's language, which knows only locales that are installed.
const languages = process.env.LANGUAGE;
const locale = process.env.LC_ALL || process.env.LC_MESSAGES || process.env.LANG;
if (!languages && locale) process.env.LANGUAGE = locale;

const application = require('./host.node');
try {
  application.launch();
} catch (error) {
  fail(error.message, 1);
}
if (!languages) delete process.env.LANGUAGE; // the script's children decide for themselves

Object.defineProperty(globalThis, 'app', {
  value: Object.freeze({
    /** Ends the application, as its Quit command does: 'exit' listeners run, timers do not. */
    quit() {
      application.willTerminate();
      process.exit();
    },

    /** Looks 'light' or 'dark' from now on, whatever the desktop asks for. */
    setAppearance(name) {
      if (!appearances.includes(name)) throw new TypeError("The appearance is 'light' or 'dark'");
      application.setDark(name === 'dark');
    },
  }),
});

if (appearance) globalThis.app.setAppearance(appearance);

Module.runMain();

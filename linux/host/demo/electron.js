// The demo's application on a Mac: the script in Electron's main process.
'use strict';

require('electron').app.whenReady().then(() => require('./question.js'));

'use strict';

const path = require('path');

const { app, BrowserWindow, ipcMain } = require('electron');

const { handlers } = require('./sharing.js');

// Here, in the main process and before anything else could load it elsewhere.
const client = process.platform === 'darwin' ? require('pellmar/promises') : undefined;

app.whenReady().then(() => {
  for (const [channel, handler] of Object.entries(handlers(client))) ipcMain.handle(channel, handler);
  // The agent may have notes of a new release, which it presents by itself.
  if (client) client.showReleaseNotesIfNeeded();

  const window = new BrowserWindow({
    width: 480,
    height: 320,
    webPreferences: { contextIsolation: true, preload: path.join(__dirname, 'preload.js'), sandbox: true },
  });
  window.loadFile('index.html');
});

app.on('window-all-closed', () => app.quit());

'use strict';

const { contextBridge, ipcRenderer } = require('electron');

contextBridge.exposeInMainWorld('sharing', {
  ask: () => ipcRenderer.invoke('sharing:ask'),
  answer: () => ipcRenderer.invoke('sharing:answer'),
});
contextBridge.exposeInMainWorld('usage', { report: (name) => ipcRenderer.invoke('usage:report', name) });

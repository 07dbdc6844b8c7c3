// An application that does what it is told on its standard input, a line of script each, in the main
// process; `print` answers with a line of JSON. Without PELLMAR_CLIENT it has no client.
'use strict';

const { app } = require('electron');
const readline = require('readline');

const pellmar = process.env.PELLMAR_CLIENT ? require(process.env.PELLMAR_CLIENT) : undefined;
const print = (value) => process.stdout.write(`${JSON.stringify(value)}\n`);

app.on('window-all-closed', () => {});
app.whenReady().then(() => {
  readline
    .createInterface({ input: process.stdin })
    .on('line', (line) => new Function('pellmar', 'print', line)(pellmar, print))
    .on('close', () => app.quit());
  print(process.arch);
});

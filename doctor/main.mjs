#!/usr/bin/env node
// The program of `npx pellmar`. It runs on the developer's machine, never in an application.

import path from 'node:path';

import { examine } from './examine.mjs';

const usage = `usage: npx pellmar doctor [--json] EDITOR.app

Looks at a finished application, on any system, and says in a line each what is right and wrong with the
client in it and what to do. Ends with 0 if nothing is wrong, with 1 if something is, and with 2 if it was
called wrongly.
`;

function main(args) {
  if (args.includes('--help')) {
    process.stdout.write(usage);
    return 0;
  }
  const asJson = args.includes('--json');
  const [command, application, ...rest] = args.filter((arg) => arg !== '--json');
  if (command !== 'doctor' || !application || rest.length > 0 || application.startsWith('-')) {
    process.stderr.write(usage);
    return 2;
  }
  const findings = examine(path.resolve(application));
  const isWell = findings.every(({ level }) => level !== 'wrong');
  if (asJson) {
    process.stdout.write(`${JSON.stringify({ application, isWell, findings }, null, 2)}\n`);
  } else {
    for (const { level, text, advice } of findings) {
      process.stdout.write(`${level.padEnd(6)}${text}${advice ? `: ${advice}` : ''}\n`);
    }
  }
  return isWell ? 0 : 1;
}

process.exitCode = main(process.argv.slice(2));

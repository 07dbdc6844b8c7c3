// The development agent as a job of the user's session: launchd alone registers Mach services.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

const service = 'com.pellmar.ProvisioningService';

const escaped = (text) =>
  text.replace(/[&<>]/g, (character) => ({ '&': '&amp;', '<': '&lt;', '>': '&gt;' })[character]);

/** Starts the agent for the length of the test `t`; `requests()` is what it was asked so far. */
export function startAgent(t, agent, folder, ...options) {
  const output = path.join(folder, 'agent.json');
  const description = path.join(folder, 'agent.plist');
  const words = [agent, 'serve', ...options].map((word) => `<string>${escaped(word)}</string>`);
  fs.writeFileSync(
    description,
    `<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
  <key>Label</key><string>${service}</string>
  <key>ProgramArguments</key><array>${words.join('')}</array>
  <key>MachServices</key><dict><key>${service}</key><true/></dict>
  <key>StandardOutPath</key><string>${escaped(output)}</string>
</dict></plist>\n`,
  );
  const session = `gui/${process.getuid()}`;
  // From here on launchd holds messages for the agent and starts it at the first.
  execFileSync('launchctl', ['bootstrap', session, description]);
  t.after(() => spawnSync('launchctl', ['bootout', `${session}/${service}`]));
  return {
    requests() {
      assert.ok(fs.existsSync(output), 'the agent was not started');
      return fs
        .readFileSync(output, 'utf8')
        .split('\n')
        .filter(Boolean)
        .map((line) => JSON.parse(line))
        .filter(({ event }) => event === 'request');
    },
  };
}

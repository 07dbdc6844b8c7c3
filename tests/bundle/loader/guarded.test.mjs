// Exceptions that the platform throws into the module end there, as the engine demands.

import assert from 'node:assert/strict';
import path from 'node:path';
import { test } from 'node:test';

import { buildFolder, makeSession } from '../../support/agent.mjs';
import { modulePath, run, slice } from './fixtures.mjs';

for (const thrown of ['NSException', 'std::runtime_error']) {
  test(`${thrown} ends in the module`, (t) => {
    const { status, signal, stdout, stderr } = run(slice, `
      const pellmar = require(${JSON.stringify(modulePath)});
      for (let i = 0; i < 3; ++i) {
        console.log(String(pellmar.PLEnableDebugLogging(true)));
        pellmar.PLEnableDebugLogging(false);
      }
      console.log(pellmar.PLGetLastUserEmailSharingResponse());`,
      { ...makeSession(t).env, LD_PRELOAD: path.join(buildFolder, 'throwing_center.so'), THROW: thrown });
    assert.equal(signal, null, stderr);
    assert.equal(status, 0, stderr);
    // What is thrown says so itself.
    assert.deepEqual(stdout.trim().split('\n'), [...Array(3).fill([thrown, 'undefined']).flat(), '0']);
  });
}

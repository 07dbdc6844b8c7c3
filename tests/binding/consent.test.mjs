// The road of one question, over the real parts: a script in the desktop host, an agent process, a
// window on a display, keys and clicks.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';

import { Agent, buildFolder, makeSession, weakReferences } from '../support/agent.mjs';
import { runHostScript, startDisplay, until } from '../support/display.mjs';

const application = 'Pellmar Demo';
const update = 'updateAllowedCustomerEmail:callback:';
const address = 'customer@example.com';

/** Where things are in the window, in points from its top left. */
const places = {
  closeMark: [16, 14],
  cancel: [217, 290],
  ok: [340, 290],
  background: [60, 100],
};

let display;
before(async () => (display = await startDisplay()));
after(() => display.stop());

/** Runs a script that finds the module as `pellmar`. */
function host(t, session, text, { env = {}, args } = {}) {
  return runHostScript(
    t,
    `const pellmar = require(${JSON.stringify(path.join(buildFolder, 'pellmar.node'))});\n${text}`,
    { display, args, env: { ...session.env, ...env } }
  );
}

/** Starts an agent and an application that asks; returns both once the window has the keyboard. */
async function ask(t, { options = [], session = makeSession(t), text = '', env, args } = {}) {
  const agent = await Agent.start(t, session, ...options);
  const app = host(t, session, `
    const result = pellmar.PLAskUserToShareEmail((...args) => print(['answer', ...args]));
    print(['result', result]);
    ${text}`, { env, args });
  assert.deepEqual(await app.next(), ['result', true]);
  await display.focused(application);
  return { agent, app, session };
}

async function geometry(window) {
  const text = await display.xdotool('getwindowgeometry', '--shell', window);
  const value = (name) => Number(new RegExp(`^${name}=(-?\\d+)$`, 'm').exec(text)[1]);
  return { x: value('X'), y: value('Y'), width: value('WIDTH'), height: value('HEIGHT') };
}

/** `mirrored`: where the place is when the window is laid out from right to left. */
async function click(place, { mirrored = false } = {}) {
  const [window] = await display.windows(application);
  const { x, y, width } = await geometry(window);
  const [across, down] = places[place];
  await display.click(x + (mirrored ? width - across : across), y + down);
}

async function windowIsGone() {
  await until(async () => (await display.windows(application)).length === 0, 'the window is gone');
}

/** The postponement in the application's own defaults, as the files on disk have it. */
function isPostponed({ defaultsFolder }) {
  // Named after the application or after its identifier, as the toolkit's version has it.
  return fs.existsSync(defaultsFolder) &&
    fs.readdirSync(defaultsFolder).filter((file) => file.endsWith('.plist')).some((file) =>
      /ShouldAskForPermissionLater/.test(
        fs.readFileSync(path.join(defaultsFolder, file), 'utf8')));
}

describe('the customer', () => {
  for (const [name, answer] of [
    ['presses Return', () => display.xdotool('key', 'Return')],
    ['clicks "Sure, I’m In"', () => click('ok')],
  ]) {
    test(`${name}: the agent gets the address and the script 1`, async (t) => {
      const { agent, app, session } = await ask(t);
      await answer();
      assert.deepEqual(await app.next(), ['answer', 1]);
      const updates = await agent.waitFor(update);
      assert.deepEqual(updates.map((request) => request.arguments), [[address]]);
      await windowIsGone();
      assert.equal(isPostponed(session), false);
    });
  }

  test('clicks "No, Thanks": the agent gets no address and the script 1', async (t) => {
    const { agent, app, session } = await ask(t);
    await click('cancel');
    assert.deepEqual(await app.next(), ['answer', 1]);
    const updates = await agent.waitFor(update);
    assert.deepEqual(updates.map((request) => request.arguments), [[null]]);
    await windowIsGone();
    assert.equal(isPostponed(session), false);
  });

  for (const [name, answer] of [
    ['presses Escape', () => display.xdotool('key', 'Escape')],
    ['presses Command-W', () => display.xdotool('key', 'alt+w')],
    ['clicks the corner mark', () => click('closeMark')],
  ]) {
    test(`${name}: the answer is postponed and the agent is not told`, async (t) => {
      const { agent, app, session } = await ask(t, {
        text: `process.on('SIGUSR2', () => print(['now', pellmar.PLGetLastUserEmailSharingResponse()]));`,
      });
      await answer();
      assert.deepEqual(await app.next(), ['answer', 2]);
      await windowIsGone();
      app.process.kill('SIGUSR2');
      assert.deepEqual(await app.next(), ['now', 2]);
      assert.equal(agent.requestsOf(update).length, 0);
      await until(() => isPostponed(session), 'the postponement is on disk');
    });
  }

  for (const [place, answer] of [['cancel', 1], ['ok', 1], ['closeMark', 2]]) {
    test(`finds ${place} on the other side in a right-to-left application`, async (t) => {
      const { agent, app } = await ask(t, {
        args: ['-NSForceRightToLeftWritingDirection', 'YES'],
      });
      await click(place, { mirrored: true });
      assert.deepEqual(await app.next(), ['answer', answer]);
      if (answer === 1) {
        const [request] = await agent.waitFor(update);
        assert.deepEqual(request.arguments, [place === 'ok' ? address : null]);
      }
      await windowIsGone();
    });
  }

  test('moves the window by its background', async (t) => {
    await ask(t);
    const [window] = await display.windows(application);
    const start = await geometry(window);
    const [x, y] = [start.x + places.background[0], start.y + places.background[1]];
    await display.xdotool('mousemove', x, y, 'mousedown', 1);
    for (let step = 1; step <= 10; ++step) {
      await display.xdotool('mousemove', x + step * 5, y + step * 3);
    }
    await display.xdotool('mouseup', 1);
    await until(async () => (await geometry(window)).x > start.x + 30, 'the window has moved');
    assert.equal((await display.windows(application)).length, 1);
  });
});

test('a postponement survives the process, and the question is asked again', async (t) => {
  const { agent, app, session } = await ask(t);
  await display.xdotool('key', 'Escape');
  assert.deepEqual(await app.next(), ['answer', 2]);
  await until(() => isPostponed(session), 'the postponement is on disk');
  await app.stop();

  const second = host(t, session, `
    print(pellmar.PLGetLastUserEmailSharingResponse());
    print(pellmar.PLAskUserToShareEmail((answer) => print(answer)));`);
  assert.equal(await second.next(), 2);
  assert.equal(await second.next(), true);
  await display.focused(application);
  await display.xdotool('key', 'Return');
  assert.equal(await second.next(), 1);
  assert.deepEqual((await agent.waitFor(update))[0].arguments, [address]);
});

test('a second question while the window is up brings no second window and no second answer', async (t) => {
  const { app } = await ask(t, { text: `
    process.on('SIGUSR2', () =>
      print(['second', pellmar.PLAskUserToShareEmail(() => print('never'))]));` });
  const [window] = await display.windows(application);
  app.process.kill('SIGUSR2');
  assert.deepEqual(await app.next(), ['second', true]);
  // The second call is through when another main-queue turn has passed.
  app.process.kill('SIGUSR2');
  assert.deepEqual(await app.next(), ['second', true]);
  assert.deepEqual(await display.windows(application), [window]);
  await display.xdotool('key', 'Return');
  assert.deepEqual(await app.next(), ['answer', 1]);
  await windowIsGone();
  await app.stop();
  assert.doesNotMatch(app.stdout, /never/);
});

test('the question can be asked again after each answer', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session, '--always-ask');
  const app = host(t, session, `
    let left = 3;
    const ask = () => pellmar.PLAskUserToShareEmail((answer) => {
      print(answer);
      if (--left > 0) print(ask());
    });
    print(ask());`);
  for (const key of ['Return', 'Escape', 'Return']) {
    assert.equal(await app.next(), true);
    await display.focused(application);
    await display.xdotool('key', key);
    assert.equal(await app.next(), key === 'Escape' ? 2 : 1);
  }
  await windowIsGone();
  assert.equal((await agent.waitFor(update, 2)).length, 2);
});

test('a question without a callback is asked and answered all the same', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  const app = host(t, session, `print(pellmar.PLAskUserToShareEmail());`);
  assert.equal(await app.next(), true);
  await display.focused(application);
  await display.xdotool('key', 'Return');
  assert.deepEqual((await agent.waitFor(update))[0].arguments, [address]);
  await windowIsGone();
});

test('a callback that is no function is ignored when the answer comes', async (t) => {
  const session = makeSession(t);
  const agent = await Agent.start(t, session);
  const app = host(t, session, `
    print(pellmar.PLAskUserToShareEmail({ not: 'a function' }));
    process.on('SIGUSR2', () => app.quit());`);
  assert.equal(await app.next(), true);
  await display.focused(application);
  await display.xdotool('key', 'Return');
  await agent.waitFor(update);
  await windowIsGone();
  app.process.kill('SIGUSR2');
  const { status, stderr } = await app.ended;
  assert.equal(stderr, '');
  assert.equal(status, 0);
});

test('an agent without an address is asked for and told nothing but the consent', async (t) => {
  const { agent, app } = await ask(t, { options: ['--no-email'] });
  await display.xdotool('key', 'Return');
  assert.deepEqual(await app.next(), ['answer', 1]);
  assert.deepEqual((await agent.waitFor(update))[0].arguments, [null]);
});

test('an answer given while the agent is gone still reaches the script', async (t) => {
  const { agent, app } = await ask(t);
  await agent.stop('SIGKILL');
  await display.xdotool('key', 'Return');
  assert.deepEqual(await app.next(), ['answer', 1]);
  await windowIsGone();
});

test('the callback runs with the global object as receiver and its microtasks are run', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session);
  const app = host(t, session, `
    print(pellmar.PLAskUserToShareEmail(function () {
      const isGlobal = this === globalThis;
      Promise.resolve().then(() => print(['microtask', isGlobal]));
    }));`);
  assert.equal(await app.next(), true);
  await display.focused(application);
  await display.xdotool('key', 'Return');
  assert.deepEqual(await app.next(), ['microtask', true]);
});

test('the callback can be collected once it was called', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session);
  const app = host(t, session, `
    require('v8').setFlagsFromString('--expose-gc');
    const gc = require('vm').runInNewContext('gc');
    ${weakReferences}
    let callback = () => print('answer');
    const reference = new WeakRef(callback);
    print(pellmar.PLAskUserToShareEmail(callback));
    callback = null;
    process.on('SIGUSR2', () => { gc(); print(reference.deref() === undefined); });`);
  assert.equal(await app.next(), true);
  await display.focused(application);
  app.process.kill('SIGUSR2');
  assert.equal(await app.next(), false);
  await display.xdotool('key', 'Return');
  assert.equal(await app.next(), 'answer');
  app.process.kill('SIGUSR2');
  assert.equal(await app.next(), true);
});

test('an exception of the callback is the runtime’s: the process ends with it', async (t) => {
  const session = makeSession(t);
  await Agent.start(t, session);
  const app = host(t, session, `
    print(pellmar.PLAskUserToShareEmail(() => { throw new Error('of the script'); }));`);
  assert.equal(await app.next(), true);
  await display.focused(application);
  await display.xdotool('key', 'Return');
  const { status, stderr } = await app.ended;
  assert.equal(status, 1);
  assert.match(stderr, /Error: of the script/);
});

test('the texts are those of the application’s own table', async (t) => {
  const picture = async (env) => {
    const { app, session } = await ask(t, { env });
    const file = path.join(session.folder, 'window.png');
    // The last of the drawing is done when nothing changes any more.
    let before;
    await until(async () => {
      await display.screenshot(file);
      const now = fs.readFileSync(file).toString('base64');
      const isSettled = now === before;
      before = now;
      return isSettled;
    }, 'the window is drawn');
    await app.stop();
    await windowIsGone();
    return before;
  };
  const english = await picture({ LC_ALL: 'C.UTF-8' });
  const german = await picture({ LC_ALL: 'de_DE.UTF-8' });
  assert.notEqual(english, german);
});

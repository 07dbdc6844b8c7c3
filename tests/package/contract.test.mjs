// What the script functions promise, tried with the module itself (in the desktop host, with an agent's process, a
// display and keys) and with the stand-in for applications' own tests: the two cannot drift apart.

import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import path from 'node:path';
import { after, before, describe, test } from 'node:test';

import { Agent, buildFolder, makeSession } from '../support/agent.mjs';
import { runHostScript, startDisplay, until } from '../support/display.mjs';

const fake = createRequire(import.meta.url)('../../fake.js');
const withPromises = new URL('../../with-promises.js', import.meta.url).pathname;

/** Each runs lines of script that find `pellmar`, `promises` and `print`, and hands out what they print. */
class Fake {
  #printed = [];

  static async start(t, agent) {
    fake.reset();
    fake.setAgent(agent);
    return new Fake();
  }

  async run(line) {
    new Function('pellmar', 'promises', 'print', line)(
      fake, fake.promises, (value) => this.#printed.push(value));
  }

  async next() {
    await until(() => this.#printed.length > 0, 'something is printed');
    return this.#printed.shift();
  }

  async answer(value) {
    fake.answer(value);
  }

  async events() {
    return fake.calls.filter(([name]) => name === 'PLReportUsageEvent').map(([, event]) => event);
  }

  async resumeAgent() {}

  async endAgent() {
    fake.setAgent('absent');
  }
}

let display;

class Module {
  #agent;
  #host;

  static async start(t, state) {
    const world = new Module();
    const session = makeSession(t);
    if (state !== 'absent') {
      world.#agent = await Agent.start(t, session, '--should-ask', state === 'answered' ? 'no' : 'yes');
    }
    world.#host = runHostScript(t, `
      const pellmar = require(${JSON.stringify(path.join(buildFolder, 'pellmar.node'))});
      const promises = require(${JSON.stringify(withPromises)})(pellmar, []);
      require('readline').createInterface({ input: process.stdin }).on('line', (line) =>
        new Function('pellmar', 'promises', 'print', line)(pellmar, promises, print));`,
    { display, env: session.env, stdin: 'pipe' });
    if (state === 'hangs' || state === 'late') await world.#agent.suspend();
    return world;
  }

  async run(line) {
    this.#host.process.stdin.write(`${line.replace(/\n\s*/g, ' ')}\n`);
  }

  next() {
    return this.#host.next();
  }

  async answer(value) {
    await display.focused('Pellmar Demo');
    await display.xdotool('key', value === 1 ? 'Return' : 'Escape');
  }

  async events(count) {
    const requests = await this.#agent.waitFor('reportUsageEvent:eventInfo:', count);
    return requests.map((request) => request.arguments[0]);
  }

  async resumeAgent() {
    this.#agent.process.kill('SIGCONT');
  }

  async endAgent() {
    await this.#agent.stop('SIGKILL');
  }
}

const ask = `print(['result', pellmar.PLAskUserToShareEmail((...args) => print(['answer', ...args]))]);`;
const known = 'print(pellmar.PLGetLastUserEmailSharingResponse());';
const thrown = (call) => `try { ${call}; print(null); } catch (error) {
  print([error.constructor.name, error.message]); }`;

for (const World of [Fake, Module]) {
  describe(`of the ${World.name.toLowerCase()}`, () => {
    if (World === Module) {
      before(async () => (display = await startDisplay()));
      after(() => display.stop());
    }

    test('the functions are the seven', async (t) => {
      const world = await World.start(t, 'absent');
      await world.run(`print(Object.keys(pellmar).filter((name) => name.startsWith('PL')));`);
      assert.deepEqual(await world.next(), [
        'PLShowReleaseNotesWindowIfNeeded', 'PLShowReleaseNotesWindow', 'PLCanShowReleaseNotesWindow',
        'PLReportUsageEvent', 'PLGetLastUserEmailSharingResponse', 'PLAskUserToShareEmail',
        'PLEnableDebugLogging',
      ]);
    });

    for (const [agent, value] of [['absent', 0], ['answered', 1], ['hangs', 0]]) {
      test(`nobody is asked, and the answer is ${value}, with the agent '${agent}'`, async (t) => {
        const world = await World.start(t, agent);
        await world.run(known);
        assert.equal(await world.next(), value);
        await world.run(ask);
        assert.deepEqual(await world.next(), ['answer', value]);
        assert.deepEqual(await world.next(), ['result', false]);
        await world.run('print(pellmar.PLAskUserToShareEmail());');
        assert.equal(await world.next(), false);
        await world.run('print(pellmar.PLAskUserToShareEmail({ no: "function" }));');
        assert.equal(await world.next(), false);
      });
    }

    for (const value of [1, 2]) {
      test(`the customer is asked, and answers with ${value}`, async (t) => {
        const world = await World.start(t, 'asks');
        await world.run(known);
        assert.equal(await world.next(), 0);
        await world.run(ask);
        assert.deepEqual(await world.next(), ['result', true]);
        await world.answer(value);
        assert.deepEqual(await world.next(), ['answer', value]);
      });
    }

    test('a postponed answer is known, and the customer is asked again', async (t) => {
      const world = await World.start(t, 'asks');
      await world.run(ask);
      assert.deepEqual(await world.next(), ['result', true]);
      await world.answer(2);
      assert.deepEqual(await world.next(), ['answer', 2]);
      await world.run(known);
      assert.equal(await world.next(), 2);
      await world.run(ask);
      assert.deepEqual(await world.next(), ['result', true]);
      await world.answer(1);
      assert.deepEqual(await world.next(), ['answer', 1]);
    });

    test('a second question brings no second window and no second answer', async (t) => {
      const world = await World.start(t, 'asks');
      await world.run(ask);
      assert.deepEqual(await world.next(), ['result', true]);
      await world.run(`print(pellmar.PLAskUserToShareEmail(() => print('never')));`);
      assert.equal(await world.next(), true);
      await world.answer(1);
      assert.deepEqual(await world.next(), ['answer', 1]);
      await world.run(`setImmediate(() => print('later'));`);
      assert.equal(await world.next(), 'later');
    });

    test('a question needs no callback', async (t) => {
      for (const callback of ['', '{ no: "function" }']) {
        const world = await World.start(t, 'asks');
        await world.run(`print(pellmar.PLAskUserToShareEmail(${callback}));`);
        assert.equal(await world.next(), true);
        await world.answer(2);
        await until(async () => {
          await world.run(known);
          return (await world.next()) === 2;
        }, 'the answer is known');
      }
    });

    test('a reply that comes late asks nobody, and the next one is in time', async (t) => {
      const world = await World.start(t, 'late');
      await world.run(ask);
      assert.deepEqual(await world.next(), ['answer', 0]);
      assert.deepEqual(await world.next(), ['result', false]);
      await world.resumeAgent();
      await until(async () => {
        await world.run('print(pellmar.PLAskUserToShareEmail((...args) => args[0] && print(args)));');
        return world.next();
      }, 'the customer is asked');
      await world.answer(1);
      assert.deepEqual(await world.next(), [1]);
    });

    test('an exception of the callback comes out where it was called', async (t) => {
      const world = await World.start(t, 'absent');
      await world.run(thrown(`pellmar.PLAskUserToShareEmail(() => { throw new RangeError('mine'); })`));
      assert.deepEqual(await world.next(), ['RangeError', 'mine']);
    });

    test('an event is reported as the text that it is, whatever it was', async (t) => {
      const world = await World.start(t, 'asks');
      await world.run(`for (const name of ['exported', 42, null, { toString: () => 'object' }, Symbol('none'),
        'before\\0after', '']) pellmar.PLReportUsageEvent(name);`);
      assert.deepEqual(await world.events(7), ['exported', '42', 'null', 'object', '', 'before', '']);
    });

    test('wrong arguments are refused in the same words', async (t) => {
      const world = await World.start(t, 'asks');
      for (const [call, message] of [
        ['PLReportUsageEvent()', 'Wrong number of arguments. Should be at least 1 string arg.'],
        [`PLReportUsageEvent('kept', {})`, 'Second argument is not supportted rignt now'],
        ['PLEnableDebugLogging()', 'Wrong number of arguments. Should be 1.'],
        ['PLEnableDebugLogging(1)', 'Wrong argument type. Should be Boolean.'],
        ['PLEnableDebugLogging(new Boolean(true))', 'Wrong argument type. Should be Boolean.'],
      ]) {
        await world.run(thrown(`pellmar.${call}`));
        assert.deepEqual(await world.next(), ['TypeError', message]);
      }
      assert.deepEqual(await world.events(1), ['kept']);
    });

    for (const [agent, name] of [['absent', 'unknown'], ['answered', 'given'], ['hangs', 'unknown']]) {
      test(`promises are settled with '${name}', with the agent '${agent}'`, async (t) => {
        const world = await World.start(t, agent);
        await world.run('promises.emailSharingAnswer().then(print);');
        assert.equal(await world.next(), name);
        await world.run('promises.askToShareEmail().then(print);');
        assert.equal(await world.next(), name);
      });
    }

    test('all who ask by a promise while the window is up get its answer, whatever the agent does', async (t) => {
      const world = await World.start(t, 'asks');
      const askOnceMore = (name) =>
        world.run(`promises.askToShareEmail().then((answer) => print(['${name}', answer])); print('asked');`);
      await askOnceMore('first');
      assert.equal(await world.next(), 'asked');
      await askOnceMore('second');
      assert.equal(await world.next(), 'asked');
      await world.endAgent();
      await askOnceMore('third');
      assert.equal(await world.next(), 'asked');
      await world.answer(2);
      for (const name of ['first', 'second', 'third']) {
        assert.deepEqual(await world.next(), [name, 'postponed']);
      }
      await askOnceMore('fourth');
      assert.equal(await world.next(), 'asked');
      assert.deepEqual(await world.next(), ['fourth', 'unknown']);
    });

    test('a postponed answer has its name', async (t) => {
      const world = await World.start(t, 'asks');
      await world.run('promises.askToShareEmail().then(print);');
      await world.answer(2);
      assert.equal(await world.next(), 'postponed');
      await world.run('promises.emailSharingAnswer().then(print);');
      assert.equal(await world.next(), 'postponed');
    });

    test('the plain names are those of the same functions', async (t) => {
      const world = await World.start(t, 'asks');
      await world.run(`promises.reportUsageEvent('plain'); promises.showReleaseNotes();
        promises.showReleaseNotesIfNeeded(); promises.enableDebugLogging(true);
        print([promises.canShowReleaseNotes(), Object.keys(promises).length]);`);
      assert.deepEqual(await world.next(), [true, 7]);
      assert.deepEqual(await world.events(1), ['plain']);
      await world.run(thrown('promises.enableDebugLogging(1)'));
      assert.deepEqual(await world.next(), ['TypeError', 'Wrong argument type. Should be Boolean.']);
    });

    test('what has no result gives none, and further arguments are ignored', async (t) => {
      const world = await World.start(t, 'absent');
      await world.run(`print([
        pellmar.PLReportUsageEvent('event'), pellmar.PLShowReleaseNotesWindow(1),
        pellmar.PLShowReleaseNotesWindowIfNeeded(2), pellmar.PLEnableDebugLogging(true, 'more'),
        pellmar.PLEnableDebugLogging(false), pellmar.PLCanShowReleaseNotesWindow(3),
        pellmar.PLGetLastUserEmailSharingResponse(4)].map(String));`);
      assert.deepEqual(await world.next(),
        ['undefined', 'undefined', 'undefined', 'undefined', 'undefined', 'true', '0']);
    });
  });
}

describe('the fake besides', () => {
  test('lists the calls that were not refused, as the agent gets them', () => {
    fake.reset();
    assert.throws(() => fake.PLReportUsageEvent());
    assert.throws(() => fake.PLReportUsageEvent(1, 2));
    assert.throws(() => fake.PLEnableDebugLogging(0));
    fake.PLEnableDebugLogging(true);
    fake.PLAskUserToShareEmail(() => {});
    fake.PLShowReleaseNotesWindow();
    fake.PLShowReleaseNotesWindowIfNeeded();
    fake.PLCanShowReleaseNotesWindow();
    fake.PLGetLastUserEmailSharingResponse();
    assert.deepEqual(fake.calls, [
      ['PLReportUsageEvent', '1'], ['PLEnableDebugLogging', true], ['PLAskUserToShareEmail'],
      ['PLShowReleaseNotesWindow'], ['PLShowReleaseNotesWindowIfNeeded'], ['PLCanShowReleaseNotesWindow'],
      ['PLGetLastUserEmailSharingResponse'],
    ]);
  });

  test('knows an answer once it was given, and forgets it', () => {
    fake.reset();
    fake.setAgent('asks');
    assert.equal(fake.isAsking(), false);
    fake.PLAskUserToShareEmail();
    assert.equal(fake.isAsking(), true);
    fake.answer(1);
    assert.equal(fake.isAsking(), false);
    assert.equal(fake.PLGetLastUserEmailSharingResponse(), 1);
    fake.reset();
    assert.equal(fake.PLGetLastUserEmailSharingResponse(), 0);
    assert.deepEqual(fake.calls, [['PLGetLastUserEmailSharingResponse']]);
  });

  test('leaves nobody waiting who has asked by a promise', async () => {
    fake.reset();
    fake.setAgent('asks');
    const before = fake.promises.askToShareEmail();
    fake.reset();
    assert.equal(await before, 'unknown');
    assert.equal(await fake.promises.askToShareEmail(), 'unknown');
  });

  test('says what a test does wrong', () => {
    fake.reset();
    assert.throws(() => fake.setAgent('dead'), /one of absent, asks, answered, hangs, late/);
    assert.throws(() => fake.answer(1), /No question is on the screen/);
    assert.throws(() => fake.answer(0), TypeError);
  });
});

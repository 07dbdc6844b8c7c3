// The desktop host: a script and AppKit's event loop in one thread, and real keys and clicks.

import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import path from 'node:path';
import { createInterface } from 'node:readline';
import { after, before, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { buildFolder, makeSession } from '../../../tests/support/agent.mjs';
import { runHostScript, startDisplay, until } from '../../../tests/support/display.mjs';

const addon = path.join(buildFolder, 'linux/host/tests/test_window.node');
const slowLook = path.join(buildFolder, 'linux/host/tests/slow_look.so');
const host = (t, display, text, { env = {}, ...options } = {}) =>
  runHostScript(t, `const probe = require(${JSON.stringify(addon)});\n${text}`, {
    display, env: { ...makeSession(t).env, ...env }, ...options,
  });

const application = 'Pellmar Demo';

describe('a script in the desktop host', () => {
  let display;
  before(async () => (display = await startDisplay({ windowManager: false })));
  after(() => display.stop());

  test('finds its command line as in plain node', async (t) => {
    const { status, stdout } = await host(t, display, `
      print([process.argv[0] === process.execPath, process.argv[1] === __filename,
        process.argv.slice(2), require.main === module, process.execArgv]);
      app.quit();`, { args: ['one', '-NSOpen', 'two words'] }).ended;
    assert.deepEqual(JSON.parse(stdout), [true, true, ['one', '-NSOpen', 'two words'], true, []]);
    assert.equal(status, 0);
  });

  test('has its timers, promises, files and children while the event loop runs', async (t) => {
    const { status, stdout, stderr } = await host(t, display, `
      const order = [];
      process.nextTick(() => order.push('tick'));
      Promise.resolve().then(() => order.push('promise'));
      setImmediate(() => order.push('immediate'));
      const all = [
        new Promise((done) => setTimeout(done, 20, 'timer')),
        require('fs').promises.readFile(__filename, 'utf8').then((text) => text.includes('order')),
        new Promise((done) => require('child_process').execFile('echo', ['child'],
          (error, stdout) => done(stdout))),
        new Promise((done) => new (require('worker_threads').Worker)(
          "require('worker_threads').parentPort.postMessage(typeof app)", { eval: true })
          .on('message', done)),
      ];
      Promise.all(all).then((values) => { print([order, values]); app.quit(); });`).ended;
    assert.deepEqual(JSON.parse(stdout),
      [['tick', 'promise', 'immediate'], ['timer', true, 'child\n', 'undefined']]);
    assert.equal(stderr, '');
    assert.equal(status, 0);
  });

  test('stays alive without anything to wait for, until it quits', async (t) => {
    const running = host(t, display, `
      process.on('exit', (code) => print(['exit', code]));
      process.on('SIGUSR2', () => { setTimeout(() => print('late'), 60_000); app.quit(); });
      setImmediate(() => print('ready'));`);
    assert.equal(await running.next(), 'ready');
    const early = await Promise.race([running.ended, new Promise((done) => setTimeout(done, 500))]);
    assert.equal(early, undefined);
    running.process.kill('SIGUSR2');
    assert.deepEqual(await running.next(), ['exit', 0]);
    assert.equal((await running.ended).status, 0);
  });

  test('ends with the code of process.exit', async (t) => {
    assert.equal((await host(t, display, 'setTimeout(() => process.exit(7), 10);').ended).status, 7);
  });

  test('ends as in plain node at an exception that nothing catches', async (t) => {
    const { status, stderr } = await host(t, display,
      `setTimeout(() => { throw new Error('thrown on purpose'); }, 10);`).ended;
    assert.equal(status, 1);
    assert.match(stderr, /Error: thrown on purpose\n {4}at /);
  });

  test('ends at an exception in a callback from the event loop, too', async (t) => {
    const { status, stderr } = await host(t, display,
      `probe.fromOtherThread(() => { throw new Error('thrown on purpose'); });`).ended;
    assert.equal(status, 1);
    assert.match(stderr, /Error: thrown on purpose/);
  });

  test('ends at SIGTERM by that signal', async (t) => {
    const running = host(t, display, `setImmediate(() => print('ready'));`);
    await running.next();
    assert.deepEqual((await running.stop()).signal, 'SIGTERM');
  });

  test('gets timers and blocks of the main queue while nothing else happens', async (t) => {
    const running = host(t, display, `
      const late = [];
      let left = 40;
      (function timer() {
        const start = performance.now();
        setTimeout(() => {
          late.push(performance.now() - start - 15);
          if (--left) timer(); else blocks();
        }, 15);
      })();
      const under_way = [];
      function blocks() {
        probe.fromOtherThread((milliseconds) => {
          under_way.push(milliseconds);
          if (under_way.length < 10) return blocks();
          const median = (values) => values.sort((a, b) => a - b)[values.length >> 1];
          print([median(late), median(under_way)]);
          app.quit();
        });
      }`);
    const [timer, block] = await running.next();
    // Or they would have to wait for an event of the desktop.
    assert.ok(timer < 1000, `timers came ${timer} ms late`);
    assert.ok(block < 1000, `blocks took ${block} ms`);
    t.diagnostic(`median: timers ${timer.toFixed(2)} ms late, blocks ${block.toFixed(2)} ms`);
  });

  test('gets a timer in time that a callback from the event loop has started', async (t) => {
    const running = host(t, display, `
      setTimeout(() => {}, 60_000);
      probe.fromOtherThread(() => {
        const start = performance.now();
        setTimeout(() => { print(performance.now() - start); app.quit(); }, 20);
      });`);
    const took = await running.next();
    assert.ok(took < 10_000, `took ${took} ms`);
  });

  test('uses no processor time while nothing happens', async (t) => {
    const running = host(t, display, `
      setTimeout(() => {
        const before = process.cpuUsage();
        setTimeout(() => {
          const { user, system } = process.cpuUsage(before);
          print((user + system) / 1000);
          app.quit();
        }, 3000);
      }, 1000);`);
    const milliseconds = await running.next();
    assert.ok(milliseconds < 300, `${milliseconds} ms in 3 s`);
    t.diagnostic(`${milliseconds} ms of processor time in 3 s`);
  });

  test('is called from the event loop with no context entered', async (t) => {
    const running = host(t, display, 'probe.enteredContext((entered) => { print(entered); app.quit(); });');
    assert.equal(await running.next(), false);
  });

  test('dies of a module that makes a handle in the event loop without a scope', async (t) => {
    const { signal, status, stderr } = await host(t, display, 'probe.forgetHandleScope();').ended;
    assert.notEqual(status, 0);
    assert.match(stderr, /Cannot create a handle without a HandleScope/);
    assert.ok(signal !== null || status > 0);
  });

  test('is told of a wrong name for the appearance', async (t) => {
    const running = host(t, display, `
      try { app.setAppearance('blue'); } catch (error) { print([error.name, error.message]); }
      app.quit();`);
    assert.deepEqual(await running.next(), ['TypeError', "The appearance is 'light' or 'dark'"]);
  });
});

for (const windowManager of [true, false]) {
  describe(`a borderless window ${windowManager ? 'with' : 'without'} a window manager`, () => {
    let display;
    before(async () => (display = await startDisplay({ windowManager })));
    after(() => display.stop());

    /** A host that shows the test window and prints each button that answers. */
    async function showWindow(t, text = '', options = {}) {
      const running = host(t, display, `
        probe.show((name) => print(name));
        print([probe.isKey(), probe.frame()]);
        process.on('SIGUSR2', () => print([probe.isKey(), probe.focused(), probe.frame()]));
        ${text}`, options);
      const [key, frame] = await running.next();
      assert.equal(key, true);
      await display.focused(application);
      const state = async () => {
        running.process.kill('SIGUSR2');
        const [isKey, focused, place] = await running.next();
        return { isKey, focused, frame: place };
      };
      return { running, frame, state };
    }

    test('takes Return, Escape and Command-W for its buttons', async (t) => {
      const { running } = await showWindow(t);
      for (const [key, answer] of [['Return', 'ok'], ['Escape', 'later'], ['alt+w', 'close'],
        ['KP_Enter', 'ok']]) {
        await display.xdotool('key', key);
        assert.equal(await running.next(), answer, key);
      }
      assert.equal(running.stderr, '');
    });

    test('takes a letter for a key equivalent only as it stands there', async (t) => {
      const { running } = await showWindow(t);
      await display.xdotool('key', 'w', 'shift+w', 'shift+alt+w', 'ctrl+w', 'ctrl+alt+w', 'alt+q',
        'shift+Return', 'alt+Return', 'Escape');
      assert.equal(await running.next(), 'later');
    });

    test('takes Command-W with Caps Lock on', async (t) => {
      const { running } = await showWindow(t);
      await display.xdotool('key', 'Caps_Lock', 'alt+w', 'Caps_Lock');
      assert.equal(await running.next(), 'close');
    });

    test('gives Return to the default button while another has the focus', async (t) => {
      const { running, state } = await showWindow(t, "probe.focus('later');");
      assert.equal((await state()).focused, 'later');
      await display.xdotool('key', 'Return');
      assert.equal(await running.next(), 'ok');
    });

    test('goes from button to button with Tab, and Space presses', async (t) => {
      const { running, state } = await showWindow(t);
      assert.equal((await state()).focused, 'cancel');
      await display.xdotool('key', 'space');
      assert.equal(await running.next(), 'cancel');
      await display.xdotool('key', 'Tab', 'space');
      assert.equal(await running.next(), 'ok');
      await display.xdotool('key', 'shift+Tab', 'space');
      assert.equal(await running.next(), 'cancel');
      await display.xdotool('key', 'Tab', 'Tab', 'space');
      assert.equal(await running.next(), 'cancel');
    });

    test('takes the first click on a button', async (t) => {
      const { running } = await showWindow(t, `
        for (const name of ['cancel', 'ok', 'later']) print(probe.center(name));`);
      const places = [await running.next(), await running.next(), await running.next()];
      for (const [index, name] of ['cancel', 'ok', 'later'].entries()) {
        await display.click(...places[index]);
        assert.equal(await running.next(), name);
      }
    });

    test('takes a click that comes just before the event loop waits', async (t) => {
      const { running } = await showWindow(t, "print(probe.center('cancel'));",
        { env: { LD_PRELOAD: slowLook } });
      const [x, y] = await running.next();
      // The movement has the loop turn; one of the clicks meets it on its way back to the wait.
      for (let milliseconds = 0; milliseconds < 40; milliseconds += 2) {
        await display.xdotool('mousemove', x + milliseconds, y, 'sleep', milliseconds / 1000,
          'click', 1);
        assert.equal(await running.next(), 'cancel', `after ${milliseconds} ms`);
      }
    });

    test('follows the mouse that has taken its background', async (t) => {
      const { running, frame: [x, y, width, height], state } = await showWindow(t);
      const follows = (left, top) => until(
        async () => (await state()).frame.toString() === [left, top, width, height].toString(),
        `the window is at ${left}, ${top}`);
      await display.xdotool('mousemove', x + 20, y + 100, 'mousedown', 1,
        'mousemove', x + 50, y + 90, 'mousemove', x + 120, y + 60);
      await follows(x + 100, y - 40);
      await display.xdotool('mousemove', x + 30, y + 130);
      await follows(x + 10, y + 30);
      await display.xdotool('mouseup', 1, 'mousemove', 5, 5);
      assert.deepEqual(await state(),
        { isKey: true, focused: 'cancel', frame: [x + 10, y + 30, width, height] });
      const [window] = await display.windows(application);
      assert.match(await display.xdotool('getwindowgeometry', window),
        new RegExp(`Position: ${x + 10},${y + 30} `));
      await display.xdotool('key', 'Return');
      assert.equal(await running.next(), 'ok');
    });

    test('does not follow the mouse that has taken a button', async (t) => {
      const { running, frame, state } = await showWindow(t, "print(probe.center('cancel'));");
      const [x, y] = await running.next();
      await display.xdotool('mousemove', x, y, 'mousedown', 1, 'mousemove', x + 200, y + 100,
        'mouseup', 1);
      assert.deepEqual((await state()).frame, frame);
    });

    test('lets timers run while the mouse holds it', async (t) => {
      const { running, frame: [x, y] } = await showWindow(t, `
        process.on('SIGWINCH', () => setTimeout(print, 20, 'timer'));`);
      await display.xdotool('mousemove', x + 20, y + 100, 'mousedown', 1, 'mousemove', x, y + 90);
      running.process.kill('SIGWINCH');
      assert.equal(await running.next(), 'timer');
      await display.xdotool('mouseup', 1);
    });

    test('goes from the screen and comes back, and leaves no window of X behind', async (t) => {
      const { running } = await showWindow(t, `
        process.on('SIGURG', () => {
          probe.isKey() ? probe.hide() : probe.showAgain();
          print(probe.isKey());
        });
        process.on('SIGWINCH', () => { probe.close(); print('closed'); });`);
      const exist = () => display.windows(application, { visible: false });
      const visible = () => display.windows(application);
      const whole = await exist();
      assert.equal((await visible()).length, 1);

      running.process.kill('SIGURG');
      assert.equal(await running.next(), false);
      await until(async () => (await visible()).length === 0, 'the window is hidden');
      assert.deepEqual(await exist(), whole);

      running.process.kill('SIGURG');
      assert.equal(await running.next(), true);
      await display.focused(application);
      await display.xdotool('key', 'Escape');
      assert.equal(await running.next(), 'later');

      running.process.kill('SIGWINCH');
      assert.equal(await running.next(), 'closed');
      await until(async () => (await visible()).length === 0, 'the window is gone');
      await until(async () => (await exist()).length === whole.length - 1, 'X has forgotten it');
    });

    test('goes on after an exception in a button’s action, which is reported', async (t) => {
      const { running } = await showWindow(t, 'probe.raise();');
      await display.xdotool('key', 'Return');
      await until(() => running.stderr.includes('raised on purpose'), 'the exception is reported');
      assert.match(running.stderr, /TestException/);
      await display.xdotool('key', 'Escape');
      assert.equal(await running.next(), 'later');
    });

    test('is the only thing of the application on the screen', async (t) => {
      await showWindow(t);
      assert.equal((await display.windows(application)).length, 1);
    });
  });
}

describe('the application bundle', () => {
  let display;
  before(async () => (display = await startDisplay({ windowManager: false })));
  after(() => display.stop());

  const texts = [
    ['Let’s stay in touch!', 'Bleiben wir in Kontakt!'],
    ['%@ invites you to receive its newsletters and offers.',
      '%@ lädt Sie ein, Newsletter und Angebote zu erhalten.'],
    ['Pellmar will share your %@ email with the developers of %@.',
      'Pellmar gibt Ihre E-Mail-Adresse %@ an die Entwickler von %@ weiter.'],
    ['No, Thanks', 'Nein, danke'],
    ['Sure, I’m In', 'Ja, gerne'],
    ['Ask Me Later', 'Später fragen'],
  ];
  const localized = async (t, env) => {
    const { stdout, stderr } = await host(t, display, `
      print([${JSON.stringify(texts)}.map(([key]) => probe.localized(key)),
        process.env.LANGUAGE ?? null]);
      app.quit();`, { env: { LC_ALL: '', LANGUAGE: '', ...env } }).ended;
    assert.equal(stderr, '');
    return JSON.parse(stdout);
  };

  test('has its name and icon', async (t) => {
    const running = host(t, display, 'print(probe.bundle()); app.quit();');
    assert.deepEqual(await running.next(), ['Pellmar Demo', 256]);
  });

  test('has German texts for a German user', async (t) => {
    const german = texts.map(([, text]) => text);
    assert.deepEqual(await localized(t, { LANG: 'de_DE.UTF-8' }), [german, null]);
    assert.deepEqual((await localized(t, { LC_ALL: 'de_AT.UTF-8' }))[0], german);
    assert.deepEqual((await localized(t, { LANG: 'fr_FR.UTF-8', LANGUAGE: 'de:fr' }))[0], german);
  });

  test('leaves the English texts as they are for everybody else', async (t) => {
    const english = texts.map(([key]) => key);
    for (const LANG of ['en_US.UTF-8', 'sv_SE.UTF-8', 'C']) {
      assert.deepEqual((await localized(t, { LANG }))[0], english, LANG);
    }
  });

  const appearance = async (t, env, text = '') => host(t, display, `
    ${text}
    print(probe.appearance());
    app.quit();`, { env }).next();

  test('looks light or dark as it is told', async (t) => {
    assert.equal(await appearance(t, {}), 'NSAppearanceNameAqua');
    assert.equal(await appearance(t, { PELLMAR_APPEARANCE: 'light' }), 'NSAppearanceNameAqua');
    assert.equal(await appearance(t, { PELLMAR_APPEARANCE: 'dark' }), 'NSAppearanceNameDarkAqua');
    assert.equal(await appearance(t, { PELLMAR_APPEARANCE: 'dark' }, "app.setAppearance('light');"),
      'NSAppearanceNameAqua');
    assert.equal(await appearance(t, {}, "app.setAppearance('dark');"), 'NSAppearanceNameDarkAqua');
  });

  test('refuses a wrong PELLMAR_APPEARANCE with one clear line', async (t) => {
    const { status, stderr } = await host(t, display, '', { env: { PELLMAR_APPEARANCE: 'blue' } })
      .ended;
    assert.deepEqual([status, stderr],
      [2, "Pellmar Demo: PELLMAR_APPEARANCE is 'blue' and can only be light or dark\n"]);
  });
});

describe('on a desktop the application', () => {
  let display;
  before(async () => (display = await startDisplay({ windowManager: false })));
  after(() => display.stop());

  /** Starts a program of the desktop's and waits for the first line that it prints. */
  async function startProgram(t, command, args, env = {}) {
    const child = spawn(command, args, {
      stdio: ['pipe', 'pipe', 'ignore'], env: { ...process.env, ...env },
    });
    t.after(() => child.kill());
    const [line] = await Promise.race([
      once(createInterface({ input: child.stdout }), 'line'),
      once(child, 'exit').then(([status]) => {
        throw new Error(`${command} ended with ${status}`);
      }),
    ]);
    return { child, line };
  }

  async function startDesktop(t, scheme) {
    const { line: DBUS_SESSION_BUS_ADDRESS, child: bus } = await startProgram(
      t, 'dbus-daemon', ['--session', '--nofork', '--print-address']);
    const { child: portal } = await startProgram(t, path.join(buildFolder, 'linux/host/tests/settings_portal'),
      [], { DBUS_SESSION_BUS_ADDRESS });
    const ask = (number) => portal.stdin.write(`${number}\n`);
    ask(scheme);
    return { env: { DBUS_SESSION_BUS_ADDRESS }, ask, bus };
  }

  const light = 'NSAppearanceNameAqua';
  const dark = 'NSAppearanceNameDarkAqua';
  /** Prints the application's appearance at first and whenever it has changed. */
  const watch = `
    let last;
    (function look() {
      const now = probe.appearance();
      if (now !== last) print(last = now);
      setTimeout(look, 5);
    })();`;

  test('looks as the desktop asks and goes with it', async (t) => {
    const { env, ask } = await startDesktop(t, 1);
    const running = host(t, display, watch, { env });
    if ((await running.next()) === light) assert.equal(await running.next(), dark);
    for (const [number, appearance] of [[0, light], [1, dark], [2, light]]) {
      ask(number);
      assert.equal(await running.next(), appearance);
    }
  });

  test('keeps the look that it was told, whatever the desktop asks', async (t) => {
    const { env, ask } = await startDesktop(t, 1);
    const running = host(t, display, `app.setAppearance('light'); ${watch}
      process.on('SIGUSR2', () => print('still'));`, { env });
    assert.equal(await running.next(), light);
    ask(1);
    ask(0);
    ask(1);
    await new Promise((done) => setTimeout(done, 300));
    running.process.kill('SIGUSR2');
    assert.equal(await running.next(), 'still');
  });

  test('outlives the session bus and uses no processor time for it', async (t) => {
    const { env, bus } = await startDesktop(t, 1);
    const running = host(t, display, `${watch}
      process.on('SIGUSR2', () => {
        const before = process.cpuUsage();
        setTimeout(() => {
          const { user, system } = process.cpuUsage(before);
          print((user + system) / 1000);
        }, 500);
      });`, { env });
    if ((await running.next()) === light) assert.equal(await running.next(), dark);
    bus.kill();
    await once(bus, 'exit');
    running.process.kill('SIGUSR2');
    const milliseconds = await running.next();
    assert.ok(milliseconds < 150, `${milliseconds} ms in 500 ms`);
  });

  test('looks light without a portal and without a bus, and says nothing', async (t) => {
    const { line } = await startProgram(
      t, 'dbus-daemon', ['--session', '--nofork', '--print-address']);
    for (const DBUS_SESSION_BUS_ADDRESS of [line, 'unix:path=/nowhere', '']) {
      const { stdout, stderr } = await host(t, display, `
        setTimeout(() => { print(probe.appearance()); app.quit(); }, 200);`,
        { env: { DBUS_SESSION_BUS_ADDRESS } }).ended;
      assert.deepEqual([JSON.parse(stdout), stderr], [light, '']);
    }
  });
});

describe('without a display the host', () => {
  test('says so in one line and ends with 1', async (t) => {
    const { status, stdout, stderr } = await host(t, undefined, 'print(1);').ended;
    assert.deepEqual([status, stdout, stderr],
      [1, '', 'Pellmar Demo: there is no display: DISPLAY is not set\n']);
  });

  test('says which display it cannot open', async (t) => {
    const { status, stdout, stderr } = await host(t, undefined, '', { env: { DISPLAY: ':9999' } })
      .ended;
    assert.deepEqual([status, stdout, stderr],
      [1, '', "Pellmar Demo: cannot open the display ':9999'\n"]);
  });

  test('explains its command line when it is given none', async () => {
    const command = fileURLToPath(new URL('../../../scripts/host', import.meta.url));
    const { status, stderr } = spawnSync(command, { encoding: 'utf8' });
    assert.deepEqual([status, stderr], [2, 'usage: scripts/host FILE.js [ARGUMENT...]\n']);
  });
});

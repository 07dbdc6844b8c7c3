// Takes the pictures of the consent window that the documents show: the real window of the real
// application on a plain gray desktop, with a compositor for its shadow and round corners.
//
//   node tests/ui/screenshots.mjs FOLDER
//
// Each picture is taken with one and with two pixels a point, those of the languages with one.

import { execFile, spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { Agent, buildFolder, makeSession } from '../support/agent.mjs';
import { runHostScript, startDisplay, until } from '../support/display.mjs';

const run = promisify(execFile);
const application = 'Pellmar Demo';
const margin = 32;

const longName =
  'The Extraordinarily Long-Winded and Thoroughly Comprehensive Document Editor for Professionals';
const longAddress = 'maximiliane.hohenzollern-sigmaringen+newsletters@post.department.example.com';

const languages = fs.readdirSync(fileURLToPath(new URL('../../languages', import.meta.url)))
  .map((folder) => path.parse(folder).name);
const contents = [
  { name: 'consent-window' },
  { name: 'consent-window-long-name', applicationName: longName },
  { name: 'consent-window-long-address', address: longAddress },
  ...languages.map((language) => ({
    name: `languages/${language}`,
    scales: [1],
    env: { LC_ALL: `${language}.UTF-8` },
    args: ['ar', 'he'].includes(language) ? ['-NSForceRightToLeftWritingDirection', 'YES'] : [],
  })),
];

/** What a test's context is to the helpers: the place to say what is to be done at the end. */
class Context {
  #ends = [];
  after(end) {
    this.#ends.push(end);
  }
  async end() {
    for (const end of this.#ends.reverse()) await end();
  }
}

/** A build folder whose application has another name. It is found by the executable's own path. */
function renamedBuild(folder, name) {
  const bundle = `${application}.app`;
  fs.cpSync(path.join(buildFolder, bundle), path.join(folder, bundle), { recursive: true });
  fs.copyFileSync(path.join(buildFolder, 'CMakeCache.txt'), path.join(folder, 'CMakeCache.txt'));
  const file = path.join(folder, bundle, 'Resources/Info-gnustep.plist');
  const text = fs.readFileSync(file, 'utf8');
  fs.writeFileSync(file, text.replace(/CFBundleName = .*;/, `CFBundleName = "${name}";`));
  return folder;
}

/** Without full-shadow the desktop would shine unshadowed through the round corners. */
const compositorSettings = (scale) => `
  backend = "xrender";
  shadow = true;
  shadow-radius = ${18 * scale};
  shadow-opacity = 0.4;
  shadow-offset-x = ${-18 * scale};
  shadow-offset-y = ${-12 * scale};
  wintypes: { normal = { full-shadow = true; }; unknown = { full-shadow = true; }; };
`;

/** Starts a display with a gray desktop and a compositor, and waits until that is at work. */
async function startDesktop(t, scale) {
  const display = await startDisplay({ size: `${800 * scale}x${600 * scale}` });
  t.after(() => display.stop());
  const env = { ...process.env, ...display.env };
  await run('xsetroot', ['-solid', '#808080'], { env });

  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'pellmar-compositor-'));
  t.after(() => fs.rmSync(folder, { recursive: true }));
  const settings = path.join(folder, 'picom.conf');
  fs.writeFileSync(settings, compositorSettings(scale));
  const compositor = spawn('picom', ['--config', settings], { stdio: 'ignore', env });
  t.after(() => compositor.kill());
  const failed = new Promise((_, reject) => {
    compositor.once('error', reject);
    compositor.once('exit', (status) => reject(new Error(`picom ended with ${status}`)));
  });
  failed.catch(() => {});
  await Promise.race([failed, until(async () =>
    (await run('xdotool', ['search', '--name', '^picom$'], { env }).catch(() => undefined)),
  'the compositor has started')]);
  return display;
}

/** Takes pictures until two are the same, and leaves the last in `file`. */
async function settledScreenshot(display, file) {
  let before;
  await until(async () => {
    await new Promise((done) => setTimeout(done, 300));
    await display.screenshot(file);
    const now = fs.readFileSync(file).toString('base64');
    const isSettled = now === before;
    before = now;
    return isSettled;
  }, 'the window is drawn', 30_000);
}

async function take(display, content, scale, look, file) {
  const { applicationName, address = 'jane@example.com', args, env } = content;
  const t = new Context();
  try {
    const session = makeSession(t);
    await run('defaults', ['write', 'NSGlobalDomain', 'GSScaleFactor', String(scale)],
      { env: { ...process.env, ...session.env } });
    await Agent.start(t, session, '--email', address);
    const build = applicationName
      ? renamedBuild(path.join(session.folder, 'build'), applicationName) : buildFolder;
    const host = runHostScript(t, `
      const pellmar = require(${JSON.stringify(path.join(buildFolder, 'pellmar.node'))});
      print(pellmar.PLAskUserToShareEmail());`, {
      display,
      args,
      env: { ...session.env, PELLMAR_APPEARANCE: look, PELLMAR_BUILD_DIR: build, ...env },
    });
    if ((await host.next()) !== true) throw new Error('the window is not going to be shown');
    await display.focused(application);
    const [window] = await display.windows(application);
    const geometry = await display.xdotool('getwindowgeometry', '--shell', window);
    const value = (name) => Number(new RegExp(`^${name}=(-?\\d+)$`, 'm').exec(geometry)[1]);
    const around = margin * scale;
    const screen = path.join(session.folder, 'screen.png');
    await settledScreenshot(display, screen);
    await run('convert', [
      screen, '-crop',
      `${value('WIDTH') + 2 * around}x${value('HEIGHT') + 2 * around}` +
        `+${value('X') - around}+${value('Y') - around}`,
      '+repage', '-strip', '-define', 'png:compression-level=9', `png24:${file}`,
    ]);
  } finally {
    await t.end();
  }
}

const folder = process.argv[2];
fs.mkdirSync(path.join(folder, 'languages'), { recursive: true });
for (const scale of [1, 2]) {
  const t = new Context();
  try {
    const display = await startDesktop(t, scale);
    for (const content of contents.filter(({ scales = [1, 2] }) => scales.includes(scale))) {
      for (const look of ['light', 'dark']) {
        const name = `${content.name}${look === 'dark' ? '-dark' : ''}` +
          `${scale === 2 ? '-2x' : ''}.png`;
        await take(display, content, scale, look, path.join(folder, name));
        console.log(path.join(folder, name));
      }
    }
  } finally {
    await t.end();
  }
}

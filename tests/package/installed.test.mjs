// An application that gets the package by each package manager and through each bundler. Where the package has the
// bundle for a Mac, the file that is installed here has this system's build.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { before, describe, test } from 'node:test';

import * as esbuild from 'esbuild';
import * as vite from 'vite';
import webpack from 'webpack';

import { buildFolder, makeSession } from '../support/agent.mjs';
import { sanitizerEnvironment } from '../support/sanitizer.mjs';
import { makeTarball, root, run, skip } from './tarball.mjs';

const program = (name) => path.join(root, 'node_modules/.bin', name);
const { version } = JSON.parse(fs.readFileSync(path.join(root, 'package.json'), 'utf8'));

/** Runs a script of the application's; returns what it printed as lines. */
function runScript(t, file) {
  const { status, stdout, stderr } = spawnSync(process.execPath, [file], {
    cwd: path.dirname(file), encoding: 'utf8',
    env: { ...process.env, ...sanitizerEnvironment(), ...makeSession(t).env },
  });
  assert.equal(status, 0, stderr);
  return stdout.trim().split('\n');
}

describe('an application', { skip }, () => {
  let session;
  let tarball;
  let env;

  before(() => {
    session = makeSession();
    process.on('exit', () => fs.rmSync(session.folder, { recursive: true }));
    const folder = path.join(session.folder, 'package');
    run('tar', ['-xzf', makeTarball(session), '-C', session.folder]);
    fs.copyFileSync(path.join(buildFolder, 'pellmar.node'), path.join(folder, 'pellmar.node'));
    tarball = path.join(session.folder, `pellmar-${version}-here.tgz`);
    run('tar', ['-czf', tarball, '-C', session.folder, 'package']);
    // Their caches and stores are not to be the user's.
    env = { ...process.env, HOME: session.env.HOME, npm_config_cache: path.join(session.folder, 'npm') };
  });

  /** An empty folder for an application, with these files: `{ name: text }`. */
  function makeApplication(files) {
    const folder = fs.mkdtempSync(path.join(session.folder, 'application-'));
    for (const [name, text] of Object.entries({ 'package.json': '{ "private": true }', ...files })) {
      fs.writeFileSync(path.join(folder, name), text);
    }
    return folder;
  }

  const scripts = {
    'main.cjs': `
      const pellmar = require('pellmar');
      const { emailSharingAnswer } = require('pellmar/promises');
      const fake = require('pellmar/fake');
      pellmar.PLReportUsageEvent('installed');
      console.log(pellmar.PLCanShowReleaseNotesWindow(), fake.calls.length);
      emailSharingAnswer().then(console.log);`,
    'main.mjs': `
      import pellmar, { PLCanShowReleaseNotesWindow } from 'pellmar';
      import { emailSharingAnswer } from 'pellmar/promises';
      import { calls } from 'pellmar/fake';
      pellmar.PLReportUsageEvent('installed');
      console.log(PLCanShowReleaseNotesWindow(), calls.length);
      console.log(await emailSharingAnswer());`,
  };

  const managers = {
    npm: () => ['npm', 'install', '--offline', '--no-audit', '--no-fund', tarball],
    pnpm: () => [program('pnpm'), 'add', '--offline', '--store-dir', path.join(session.folder, 'pnpm'), tarball],
    yarn: () => [program('yarn'), 'add', '--offline', '--non-interactive', '--cache-folder',
      path.join(session.folder, 'yarn'), tarball],
  };
  for (const [name, command] of Object.entries(managers)) {
    test(`gets it by ${name}, and both kinds of module load it`, (t) => {
      const folder = makeApplication(scripts);
      const [file, ...args] = command();
      const { status, stdout, stderr } = spawnSync(file, args, { cwd: folder, env, encoding: 'utf8' });
      assert.equal(status, 0, stdout + stderr);
      for (const script of Object.keys(scripts)) {
        assert.deepEqual(runScript(t, path.join(folder, script)), ['true 0', 'unknown']);
      }
    });
  }

  /**
   * Each makes `out/main.cjs` of `main.js` in the folder; returns what it complains of. `external` is taken as it is,
   * and so is every file `pellmar.node` if `leavesFile`.
   */
  const bundlers = {
    async esbuild(folder, { external = [], leavesFile, alias } = {}) {
      const { errors } = await esbuild.build({
        absWorkingDir: folder, entryPoints: ['main.js'], outfile: 'out/main.cjs', bundle: true, platform: 'node',
        target: 'node12.18', external: [...external, ...(leavesFile ? ['*.node'] : [])], alias, logLevel: 'silent',
      }).catch((error) => error);
      return errors.map(({ text }) => text);
    },

    async webpack(folder, { external = [], leavesFile, alias } = {}) {
      const stats = await new Promise((resolve, reject) => webpack({
        context: folder, entry: './main.js', target: 'node12.18', mode: 'production',
        output: { path: path.join(folder, 'out'), filename: 'main.cjs' },
        externals: Object.fromEntries([...external, ...(leavesFile ? ['./pellmar.node'] : [])]
          .map((name) => [name, `commonjs ${name}`])),
        resolve: { alias },
      }, (error, result) => (error ? reject(error) : resolve(result))));
      return stats.toJson({ all: false, errors: true }).errors.map(({ moduleName }) => moduleName);
    },

    async vite(folder, { external = [], leavesFile, alias } = {}) {
      const [error] = await vite.build({
        root: folder, configFile: false, logLevel: 'silent', resolve: { alias },
        build: {
          ssr: 'main.js', outDir: 'out', target: 'node12.18',
          rollupOptions: { external: [...external, ...(leavesFile ? [/\.node$/] : [])], output: { format: 'cjs', entryFileNames: 'main.cjs' } },
        },
        ssr: { noExternal: true, external },
      }).then(() => [], (failure) => [failure]);
      return error ? [error.message] : [];
    },
  };

  const main = `
    import * as pellmar from 'pellmar';
    pellmar.PLReportUsageEvent('bundled');
    console.log(pellmar.PLCanShowReleaseNotesWindow());
    if (pellmar.setAgent) {
      pellmar.setAgent('asks');
      pellmar.PLAskUserToShareEmail((answer) => console.log(answer));
      pellmar.answer(2);
    }`;

  for (const [name, bundle] of Object.entries(bundlers)) {
    describe(`bundled by ${name}`, () => {
      let folder;
      before(() => {
        folder = makeApplication({ 'main.js': main });
        const installed = path.join(folder, 'node_modules/pellmar');
        fs.mkdirSync(installed, { recursive: true });
        run('tar', ['-xzf', tarball, '-C', installed, '--strip-components=1']);
      });
      const output = () => path.join(folder, 'out/main.cjs');

      test('runs with the stand-in in the bundle', async (t) => {
        assert.deepEqual(await bundle(folder, { alias: { pellmar: 'pellmar/fake' } }), []);
        // Alone, so that nothing is taken from elsewhere.
        const alone = path.join(session.folder, `${name}.cjs`);
        fs.copyFileSync(output(), alone);
        assert.deepEqual(runScript(t, alone), ['true', '2']);
      });

      test('runs with the package beside it', async (t) => {
        assert.deepEqual(await bundle(folder, { external: ['pellmar'] }), []);
        assert.deepEqual(runScript(t, output()), ['true']);
      });

      test('is refused with the file in the bundle, which is named', async () => {
        const complaints = await bundle(folder);
        assert.equal(complaints.length, 1);
        assert.match(complaints[0], /pellmar\.node/);
      });

      test('says what has happened when the script was taken in without the file', async (t) => {
        assert.deepEqual(await bundle(folder, { leavesFile: true }), []);
        const { status, stderr } = spawnSync(process.execPath, [output()],
          { encoding: 'utf8', env: { ...process.env, ...sanitizerEnvironment(), ...makeSession(t).env } });
        assert.equal(status, 1);
        assert.match(stderr, /Pellmar: there is no pellmar\.node in .* make 'pellmar' external/);
      });
    });
  }
});

// Looks at a finished application and says what is right and wrong with the client in it.

import fs from 'node:fs';
import path from 'node:path';

import { listArchive } from './asar.mjs';
import { readSlices } from './macho.mjs';
import { parsePropertyList } from './property_list.mjs';
import { readTable, tableFaults } from './strings_table.mjs';

const serviceName = 'com.pellmar.ProvisioningService';
/** What the module is recorded as in the runtime's own list. */
const moduleName = 'pellmar';

/**
 * Module versions by Electron's major version, from Node's registry (doc/abi_version_registry.json): those
 * around the client's. For others Electron's own version has to do.
 */
const moduleVersions = new Map([[9, 80], [10, 82], [11, 85], [12, 87], [13, 89]]);

/**
 * Examines the application in that folder.
 *
 * @returns findings: `{ check, level, text, advice }`, where the level is `ok`, `note` (worth knowing) or
 *   `wrong`, and the advice says what to do unless all is well.
 */
export function examine(application) {
  const findings = [];
  const tell = (check, level, text, advice) =>
    findings.push({ check, level, text, ...(advice && { advice }) });
  const contents = path.join(application, 'Contents');

  const info = readPropertyList(path.join(contents, 'Info.plist'));
  if (!info) {
    tell('application', 'wrong', `there is no readable Contents/Info.plist in ${application}`,
      'name the folder of a Mac application, such as Editor.app');
    return findings;
  }

  const client = examineCopies(contents, tell);
  const program = readProgram(contents, info, tell);
  if (client) {
    examineSlices(client, program, tell);
    examineModuleVersion(contents, client, tell);
    examineSignature(client, program, tell);
  }
  if (program) examineEntitlements(program, tell);
  examineNameAndIcon(contents, info, tell);
  examineTables(contents, tell);
  return findings;
}

function readPropertyList(file) {
  try {
    return parsePropertyList(fs.readFileSync(file));
  } catch {
    return undefined;
  }
}

/** Files below a folder, without following links, which frameworks have to themselves. */
function* filesBelow(folder) {
  for (const entry of fs.readdirSync(folder, { withFileTypes: true })) {
    const file = path.join(folder, entry.name);
    if (entry.isDirectory()) yield* filesBelow(file);
    else if (entry.isFile()) yield file;
  }
}

/** Where the client is, which it must be once and outside an archive. Returns its slices. */
function examineCopies(contents, tell) {
  const copies = [];
  const archived = [];
  for (const file of filesBelow(contents)) {
    if (file.endsWith('.node')) {
      const slices = readSlices(fs.readFileSync(file));
      if (slices.some((slice) => slice.moduleVersions(moduleName).length > 0)) copies.push({ file, slices });
    } else if (file.endsWith('.asar')) {
      const inside = readArchive(file, tell);
      archived.push(...inside.filter(({ path: name, isUnpacked }) =>
        !isUnpacked && /(^|\/)pellmar\/.*\.node$/.test(name))
        .map(({ path: name }) => `${path.relative(contents, file)}/${name}`));
    }
  }
  const names = copies.map(({ file }) => path.relative(contents, file));
  // Two builds that were not merged in one archive have one each, of which a processor sees its own.
  const places = new Set(names.map((name) => name.replace(/-(x64|arm64)(?=\.asar)/, '')));
  if (archived.length > 0) {
    tell('place', 'wrong', `the client lies inside an archive: ${archived.join(', ')}`,
      "unpack it: asar: { unpack: '**/*.node' }, or asarUnpack in electron-builder");
  }
  if (copies.length === 0) {
    if (archived.length === 0) {
      tell('place', 'wrong', 'the client is not in the application',
        'have the packer take the dependency pellmar along with its .node file');
    }
    return undefined;
  }
  if (places.size > 1) {
    tell('copies', 'wrong', `the client is there ${places.size} times: ${names.join(', ')}`,
      'keep one: each copy is a module of its own, and what the application holds as one state is two');
  } else if (archived.length === 0) {
    tell('place', 'ok', `the client is there once, outside the archive: ${names.join(', ')}`);
  }
  return { slices: copies.flatMap(({ slices }) => slices) };
}

function readArchive(file, tell) {
  try {
    return listArchive(file);
  } catch (error) {
    tell('archive', 'wrong', `${path.basename(file)} cannot be read: ${error.message}`, 'pack it anew');
    return [];
  }
}

/** The application's own executable: the slices of its file. */
function readProgram(contents, info, tell) {
  const name = info.CFBundleExecutable;
  const file = typeof name === 'string' && path.join(contents, 'MacOS', name);
  const slices = file && fs.existsSync(file) ? readSlices(fs.readFileSync(file)) : [];
  if (slices.length > 0) return slices;
  tell('application', 'wrong', `its executable is missing or not one for a Mac: ${name ?? 'CFBundleExecutable'}`,
    'pack the application anew');
  return undefined;
}

const architecturesOf = (slices) => [...new Set(slices.map(({ architecture }) => architecture))].sort();

function examineSlices({ slices }, program, tell) {
  const found = architecturesOf(slices);
  const missing = ['arm64', 'x86_64'].filter((architecture) => !found.includes(architecture));
  const needed = program ? architecturesOf(program).filter((architecture) => missing.includes(architecture)) : [];
  if (needed.length > 0) {
    tell('slices', 'wrong', `the application runs on ${needed.join(' and ')}, and the client does not`,
      'pack the file as it is in the package, and name it in x64ArchFiles when two builds are merged');
  } else if (missing.length > 0) {
    tell('slices', 'note', `the client has code for ${found.join(' and ')} alone, as the application has`,
      'nothing, unless the application is to be universal');
  } else {
    tell('slices', 'ok', `the client has code for ${found.join(' and ')}`);
  }
}

function examineModuleVersion(contents, { slices }, tell) {
  const versions = [...new Set(slices.flatMap((slice) => slice.moduleVersions(moduleName)))];
  const framework = path.join(contents, 'Frameworks/Electron Framework.framework');
  // No file of Electron says its module version, but the framework's Info.plist has Electron's own.
  const electron = ['Resources', 'Versions/A/Resources', 'Versions/Current/Resources']
    .map((folder) => readPropertyList(path.join(framework, folder, 'Info.plist'))?.CFBundleVersion)
    .find((version) => /^\d+\.\d+/.test(version ?? ''));
  if (!electron) {
    tell('runtime', 'wrong', 'there is no Electron Framework that says its version',
      'the client is for applications in Electron; pack the application anew');
    return;
  }
  const wanted = moduleVersions.get(Number.parseInt(electron, 10));
  if (versions.length === 1 && versions[0] === wanted) {
    tell('runtime', 'ok', `the client and Electron ${electron} have module version ${wanted}`);
    return;
  }
  const right = [...moduleVersions].filter(([, version]) => versions.includes(version)).map(([major]) => major);
  tell('runtime', 'wrong',
    `the client has module version ${versions.join(' and ')}, that of Electron ${right.join(' and ')}, and the ` +
      `application has Electron ${electron}${wanted ? `, of module version ${wanted}` : ''}`,
    'use a release of the client for this Electron; rebuilding the package cannot help');
}

function examineSignature({ slices }, program, tell) {
  const unsigned = slices.filter(({ signature }) => !signature);
  if (unsigned.length > 0) {
    tell('signature', 'wrong', `the client is not signed (${architecturesOf(unsigned).join(', ')})`,
      'sign it like every other file of the application, before the application itself');
    return;
  }
  for (const { architecture, signature } of slices) {
    const [fault] = signature.faults();
    if (fault) {
      tell('signature', 'wrong', `the client was changed after it was signed (${architecture}: ${fault})`,
        'sign it again, after the last step that changes files');
      return;
    }
  }
  if (!program) return;
  const teams = [...new Set(slices.map(({ signature }) => signature.team))];
  const team = program[0].signature?.team;
  if (teams.length > 1 || teams[0] !== team) {
    const name = (identifier) => identifier ?? 'no team';
    tell('signature', 'wrong',
      `the client is signed by ${teams.map(name).join(' and ')}, the application by ${name(team)}`,
      'sign both with the same identity: library validation refuses what another team has signed');
  } else if (team) {
    tell('signature', 'ok', `the client and the application are signed by the team ${team}`);
  } else {
    tell('signature', 'note', 'the application is not signed by a team, nor is the client',
      'sign both with your identity for a release');
  }
}

function examineEntitlements([{ signature }], tell) {
  const entitlements = signature?.entitlements ? parsePropertyList(signature.entitlements) : {};
  const isSandboxed = entitlements['com.apple.security.app-sandbox'] === true;
  if (signature?.hasHardenedRuntime) {
    tell('hardened runtime', 'ok', 'the application has the hardened runtime');
  } else if (signature?.team) {
    tell('hardened runtime', isSandboxed ? 'note' : 'wrong', 'the application lacks the hardened runtime',
      `sign it with --options runtime (hardenedRuntime: true)${isSandboxed ? ', unless it is for the Mac App Store' : ''}: ` +
        'notarization asks for it');
  }
  if (entitlements['com.apple.security.cs.disable-library-validation'] === true) {
    tell('library validation', 'note', 'the application turns library validation off',
      'the client does not need that: sign it with the application’s identity instead');
  }
  if (!isSandboxed) {
    tell('sandbox', 'ok', 'the application is not sandboxed, and needs no entitlement for the agent');
    return;
  }
  const key = 'com.apple.security.temporary-exception.mach-lookup.global-name';
  if ([].concat(entitlements[key] ?? []).includes(serviceName)) {
    tell('sandbox', 'ok', 'the sandbox lets the application look up the agent');
  } else {
    tell('sandbox', 'wrong', 'the sandbox hides the agent from the application',
      `add ${serviceName} to the entitlement ${key}`);
  }
}

function examineNameAndIcon(contents, info, tell) {
  const name = info.CFBundleName;
  if (typeof name !== 'string' || name === '') {
    tell('name', 'wrong', 'Info.plist has no CFBundleName, and the window leaves its place empty',
      'give the application a name (productName)');
  } else if (name === 'Electron') {
    tell('name', 'wrong', 'the window calls the application Electron', 'give it its own CFBundleName (productName)');
  } else {
    tell('name', 'ok', `the window calls the application ${name}`);
  }
  const icon = info.CFBundleIconFile;
  const resources = path.join(contents, 'Resources');
  const isThere = [icon, `${icon}.icns`].some((file) => icon && fs.existsSync(path.join(resources, file)));
  const isInCatalog = info.CFBundleIconName && fs.existsSync(path.join(resources, 'Assets.car'));
  if (isThere || isInCatalog) {
    tell('icon', 'ok', `the window shows the icon ${isThere ? icon : info.CFBundleIconName}`);
  } else {
    tell('icon', 'wrong', icon ? `the icon ${icon} is not in Contents/Resources` : 'the application has no icon',
      'give the packer an icon');
  }
}

function examineTables(contents, tell) {
  const resources = path.join(contents, 'Resources');
  const tables = fs.existsSync(resources)
    ? fs.readdirSync(resources).filter((name) => name.endsWith('.lproj')).sort()
      .filter((name) => fs.existsSync(path.join(resources, name, 'Pellmar.strings')))
    : [];
  if (tables.length === 0) {
    tell('texts', 'note', 'there is no Pellmar.strings, and the window is in English for everybody',
      'copy the folders of node_modules/pellmar/languages to Contents/Resources');
  }
  const right = [];
  for (const folder of tables) {
    let faults;
    try {
      faults = tableFaults(readTable(fs.readFileSync(path.join(resources, folder, 'Pellmar.strings'))));
    } catch (error) {
      faults = [{ text: `it cannot be read: ${error.message}`, advice: 'write it as UTF-8, as those of the package are' }];
    }
    for (const { text, advice } of faults) tell('texts', 'wrong', `${folder}/Pellmar.strings: ${text}`, advice);
    if (faults.length === 0) right.push(path.parse(folder).name);
  }
  if (right.length > 0) tell('texts', 'ok', `the window is translated: ${right.join(', ')}`);
}

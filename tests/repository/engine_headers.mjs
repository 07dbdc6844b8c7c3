// A runtime's headers as their maker offers them: an archive beside a list of digests.

import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';

export const archive = 'node-v11.5.0-headers.tar.gz';

/** As a runtime's headers come: its build's variables, and what they define. */
export const engineSettings = {
  'config.gypi': `# Do not edit. Generated.
{ 'target_defaults': { 'defines': [] },
  'variables': { 'v8_enable_31bit_smis_on_64bit_arch': 1,  # a comment
                 'v8_enable_pointer_compression': 1,
                 'v8_enable_reverse_jsargs': 1 } }
`,
  'common.gypi': `{
  'variables': {
    'v8_embedder_string': '-#1' '.2',
    'v8_enable_pointer_compression%': 0,
    'v8_enable_31bit_smis_on_64bit_arch%': 0,
    'v8_enable_reverse_jsargs%': 0,
    'conditions': [
      ['target_arch in "arm ia32 mips"', {
        'v8_enable_pointer_compression': 0,
        'v8_enable_reverse_jsargs': 0,
      }],
      ['unheard_of == "x"', { 'v8_enable_pointer_compression': 0 }],
    ],
  },
  'target_defaults': {
    'defines': ['V8_DEPRECATION_WARNINGS=1'],
    'conditions': [
      ['v8_enable_pointer_compression == 1', { 'defines': ['V8_COMPRESS_POINTERS'] }],
      ['v8_enable_pointer_compression == 1 or v8_enable_31bit_smis_on_64bit_arch == 1', {
        'defines': ['V8_31BIT_SMIS_ON_64BIT_ARCH'],
      }],
      ['OS == "win"', { 'defines': ['V8_OS_WIN'] }, {
        'conditions': [['v8_enable_reverse_jsargs == 1 and OS not in "aix"', {
          'defines': ['V8_REVERSE_JSARGS'],
        }]],
      }],
    ],
  },
}
`,
  'v8.h': '#ifdef V8_COMPRESS_POINTERS\n#endif\n#if defined(V8_31BIT_SMIS_ON_64BIT_ARCH)\n#endif\n' +
    '#ifdef V8_REVERSE_JSARGS\n#endif\n#ifdef V8_OS_WIN\n#endif\n',
};

export function writeFiles(folder, files) {
  for (const [name, content] of Object.entries(files)) fs.writeFileSync(path.join(folder, name), content);
}

/** Offers, in `folder`, headers of a module version and with an engine's settings. */
export function offerHeaders(folder, version = 85, settings = engineSettings) {
  const headers = path.join(folder, 'node_headers/include/node');
  fs.rmSync(headers, { recursive: true, force: true });
  fs.mkdirSync(headers, { recursive: true });
  writeFiles(headers,
    { 'node_version.h': `#define NODE_MODULE_VERSION ${version}\n`, 'node.h': '', ...settings });
  execFileSync('tar', ['-czf', archive, 'node_headers'], { cwd: folder });
  const digest = createHash('sha256').update(fs.readFileSync(path.join(folder, archive))).digest('hex');
  fs.writeFileSync(path.join(folder, 'SHASUMS256.txt'), `${digest}  ${archive}\n`);
}

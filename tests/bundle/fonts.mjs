// The fonts of an old Mac for the window's looks there: it asks for faces of Helvetica Neue by their
// names, which every Mac has. Here those of Inter, the system font of the platform layer, stand for them.

import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

const faces = { 'Inter-Thin': 'HelveticaNeue-Thin', 'Inter-Light': 'HelveticaNeue-Light',
  'Inter-Regular': 'HelveticaNeue' };

/** Makes a folder of them and returns the environment in which a program finds them besides the others. */
export function oldFonts(folder) {
  fs.mkdirSync(folder, { recursive: true });
  const installed = execFileSync('dpkg-query', ['-L', 'fonts-inter'], { encoding: 'utf8' }).split('\n');
  const rules = Object.entries(faces).map(([face, name]) => {
    const file = path.join(folder, `${name}.otf`);
    fs.rmSync(file, { force: true });
    // A link of another name is another font for fontconfig.
    fs.symlinkSync(installed.find((candidate) => candidate.endsWith(`/${face}.otf`)), file);
    return `
  <match target="scan">
    <test name="file"><string>${file}</string></test>
    <edit name="family" mode="assign"><string>HelveticaNeue</string></edit>
    <edit name="postscriptname" mode="assign"><string>${name}</string></edit>
  </match>`;
  });
  const configuration = path.join(folder, 'fonts.conf');
  fs.writeFileSync(configuration, `<?xml version="1.0"?>
<fontconfig>
  <include>/etc/fonts/fonts.conf</include>
  <dir>${folder}</dir>${rules.join('')}
</fontconfig>
`);
  return { FONTCONFIG_FILE: configuration };
}

// Pictures of the page, as people see it.
//
//   node pictures.mjs TRELVOCTL FOLDER
import {execFileSync} from 'node:child_process';
import {mkdtempSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';

import {Browser} from './browser.mjs';
import {writeSample} from './sample.mjs';

const [trelvoctl, folder] = process.argv.slice(2);
process.env.TZ = 'UTC';
const dumps = mkdtempSync(join(tmpdir(), 'pictures-'));
const healthy = mkdtempSync(join(tmpdir(), 'healthy-'));
let browser;
try {
  const lines = writeSample(dumps, 60000);
  const page = join(dumps, 'report.html');
  writeSample(healthy, 60000, {healthy: true});
  execFileSync(trelvoctl, ['report', dumps, '--good', healthy, '-o', page]);
  browser = await Browser.start();
  const first = lines.findIndex(({level}) => level === 'F') + 1;
  await browser.open(page, `#line=${first}`);
  await browser.screenshot(join(folder, 'light.png'));
  await browser.screenshot(join(folder, 'dark.png'), {dark: true});
  await browser.screenshot(join(folder, 'narrow.png'), {width: 400, height: 1000});
} finally {
  await browser?.quit();
  for (const each of [dumps, healthy]) rmSync(each, {recursive: true});
}

// Measures the page of `trelvoctl report` in a headless Chromium, on the log of a made-up device.
//
//   node page_bench.mjs TRELVOCTL FOLDER
import {execFileSync} from 'node:child_process';
import {mkdirSync, readdirSync, readFileSync, statSync} from 'node:fs';
import {join} from 'node:path';

import {Browser} from '../tests/report/browser.mjs';
import {writeSample} from '../tests/report/sample.mjs';

const RUNS = 5;
const SEARCHES =
    ['(timed out|failed).*after', '\\b5\\d\\d\\b.*\\d{3}', '(\\d+)\\D+\\1\\b', '[aeiou]{2}.*\\w$'];

const [trelvoctl, folder] = process.argv.slice(2);
const median = (values) => values.sort((a, b) => a - b)[values.length >> 1];

function makePage(lines) {
  const dumps = join(folder, `${lines}`);
  mkdirSync(dumps, {recursive: true});
  writeSample(dumps, lines);
  const page = join(folder, `${lines}.html`);
  execFileSync(trelvoctl, ['report', dumps, '-o', page]);
  return page;
}

// Milliseconds from the change of a control to the frame that shows what comes of it.
function timeOf(browser, id, value) {
  return browser.run(async (name, wanted) => {
    const control = document.getElementById(name);
    const start = performance.now();
    if (wanted === null)
      control.click();
    else {
      control.value = wanted;
      control.dispatchEvent(new Event('input'));
    }
    const frame = () => new Promise(requestAnimationFrame);
    do await frame();
    while (document.body.ariaBusy === 'true');
    await frame();
    return performance.now() - start;
  }, id, value);
}

// The memory of the browser's process that has the page, in MB: what is its own, and resident.
function memoryOf(driver) {
  const children = new Map();
  for (const pid of readdirSync('/proc').filter((name) => /^\d+$/.test(name))) {
    try {
      const parent =
          / \d+ \(.*\) \S (\d+)/.exec(' ' + readFileSync(`/proc/${pid}/stat`, 'utf8'))[1];
      children.set(parent, [...children.get(parent) ?? [], pid]);
    } catch {
      // It has just ended.
    }
  }
  const below = (pid) => (children.get(pid) ?? []).flatMap((child) => [child, ...below(child)]);
  const own = below(String(driver.pid)).map((pid) => {
    const read = (name) => readFileSync(`/proc/${pid}/${name}`, 'latin1');
    if (!read('cmdline').includes('--type=renderer')) return 0;
    return Number(/Private_Dirty: +(\d+)/.exec(read('smaps_rollup'))[1]) / 1024;
  });
  return Math.max(...own);
}

async function measure(lines) {
  const page = makePage(lines);
  const browser = await Browser.start();
  try {
    const opens = [];
    const paints = [];
    for (let run = 0; run < RUNS; run++) {
      await browser.open(page);
      const [paint, opened] = await browser.run(() => {
        const paint = performance.getEntriesByName('first-contentful-paint')[0].startTime;
        return [paint, performance.getEntriesByName('shown')[0].startTime];
      });
      paints.push(paint);
      opens.push(opened);
    }
    const row = {
      'lines': lines,
      'bytes a line': (statSync(page).size / lines).toFixed(1),
      'first paint, ms': Math.round(median(paints)),
      'log shown, ms': Math.round(median(opens)),
    };
    const level = [];
    const text = [];
    for (let run = 0; run < RUNS; run++) {
      await browser.run(() => document.querySelector('.chip.level-E').id = 'level');
      for (let side = 0; side < 2; side++) level.push(await timeOf(browser, 'level', null));
      text.push(await timeOf(browser, 'text', ['failed', 'decoded', 'x', '0', 'late'][run]));
    }
    row['filter by level, ms'] = Math.round(median(level));
    row['filter by text, ms'] = Math.round(median(text));
    await timeOf(browser, 'text', '');
    await browser.click('#regex');
    const regex = [];
    for (const search of SEARCHES) regex.push(await timeOf(browser, 'text', search));
    row['slowest regex, ms'] = Math.round(Math.max(...regex));
    row['memory, MB'] = Math.round(memoryOf(browser.driver));
    return row;
  } finally {
    await browser.quit();
  }
}

const rows = [];
for (const lines of [100000, 1000000]) rows.push(await measure(lines));
console.table(rows);

// The page of `trelvoctl report` in a real browser, against what `trelvoctl decode` gives.
//
//   node report_test.mjs TRELVOCTL
import assert from 'node:assert/strict';
import {execFileSync, spawnSync} from 'node:child_process';
import {mkdirSync, mkdtempSync, readFileSync, renameSync, rmSync, utimesSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {after, before, test} from 'node:test';

import {durationText, timeText} from '../../tools/report/words.js';
import {buildDump} from '../formats/dump.mjs';
import {hostileDump} from '../formats/hostile.mjs';

import {Browser} from './browser.mjs';
import {writeSample} from './sample.mjs';

const LINES = 70000;  // more than one block
const SKIPPED = 77;

const [trelvoctl] = process.argv.slice(2);
for (const program of ['chromium', 'chromedriver']) {
  if (spawnSync(program, ['--version']).error) {
    console.log(`Skipped: ${program} is not installed; scripts/setup test installs it.`);
    process.exit(SKIPPED);
  }
}
process.env.TZ = 'UTC';  // of the browser, too

const folder = mkdtempSync(join(tmpdir(), 'report-'));
const dumps = join(folder, 'dumps');
const page = join(folder, 'report.html');
const good = join(folder, 'good');
const compared = join(folder, 'compared.html');
let browser;
let lines;

const run = (...args) => execFileSync(trelvoctl, args, {encoding: 'utf8', maxBuffer: 1 << 28});
const decode = (...args) => run('decode', '-o', 'json', ...args, dumps)
                                .split('\n')
                                .filter(Boolean)
                                .map((line) => JSON.parse(line));
const contentOf = (css) =>
    browser.run((selector) => document.querySelector(selector).textContent, css);
const textOf = (css) => browser.run((selector) => document.querySelector(selector).innerText, css);
// Several lines are counted as "1,234 of 70,000 lines".
const count = async () => Number((await textOf('#counts')).split(' ')[0].replaceAll(',', ''));
// Messages come a moment later.
const rows = () => browser.run(async () => {
  while (document.querySelector('.line:not([hidden]) .message:empty')) {
    await new Promise(requestAnimationFrame);
  }
  return [...document.querySelectorAll('.line:not([hidden])')].map(
      (row) => ({
        time: row.querySelector('.time').textContent,
        message: row.querySelector('.message').textContent,
        level: row.querySelector('.level').textContent,
        tag: row.querySelector('.tag').textContent,
        mark: row.querySelector('.mark').textContent,
        place: row.ariaPosInSet,
        other: row.classList.contains('other'),
      }));
});
const timeOf = ({wall_ms}) => new Date(wall_ms).toISOString().replace('T', ' ').slice(0, -1);
const isError = ({level}) => 'EF'.includes(level);
const selected = async () =>
    Number(/^Line ([\d,]+)/.exec(await textOf('#detail-title'))[1].replaceAll(',', '')) - 1;
// The address is written a moment later.
const address = (part) => browser.run(async (wanted) => {
  while (!location.hash.includes(wanted)) await new Promise((resolve) => setTimeout(resolve, 20));
  return location.hash;
}, part);
// Types one text after the other, faster than any is searched, and Enter or a key elsewhere.
const search = async (texts, key) => {
  await browser.run((typed, pressed) => {
    const field = document.getElementById('text');
    for (const text of typed) {
      field.value = text;
      field.dispatchEvent(new Event('input'));
    }
    const target = pressed === 'Enter' ? field : document.body;
    target.dispatchEvent(new KeyboardEvent('keydown', {key: pressed, bubbles: true}));
  }, texts, key);
  await browser.settled();
};
// What the page copies, and says of it.
let said;
const copied = async (button) => {
  await browser.click(button);
  const [words, text] = await browser.run(async () => {
    const output = document.getElementById('said');
    while (!output.textContent.startsWith('Copied')) await new Promise(requestAnimationFrame);
    const told = output.textContent;
    output.textContent = '';
    return [told, await navigator.clipboard.readText()];
  });
  said = words;
  return text;
};

const isHidden = (css) => browser.run((wanted) => document.querySelector(wanted).hidden, css);
const hasFocus = (css) => browser.run((wanted) => document.activeElement.matches(wanted), css);
// What Ctrl+C copies.
const copiedLine = () => browser.run(() => {
  const event = new ClipboardEvent('copy', {clipboardData: new DataTransfer(), bubbles: true});
  document.activeElement.dispatchEvent(event);
  return event.clipboardData.getData('text/plain');
});

// The pixels of a colour in the timeline: the last row of each column that has some, from above.
const drawn = (name) => browser.run((variable) => {
  const canvas = document.getElementById('timeline');
  const copy =
      new OffscreenCanvas(canvas.width, canvas.height).getContext('2d', {willReadFrequently: true});
  const probe = document.getElementById('probe');
  probe.style.color = `var(--${variable})`;
  copy.fillStyle = getComputedStyle(probe).color;
  copy.fillRect(0, 0, 1, 1);
  const pixels = () => {
    const {data} = copy.getImageData(0, 0, canvas.width, canvas.height);
    return new Uint32Array(data.buffer);
  };
  const [color] = pixels();
  copy.clearRect(0, 0, 1, 1);
  copy.drawImage(canvas, 0, 0);
  const last = {};
  pixels().forEach((pixel, i) => {
    if (pixel === color) last[i % canvas.width] = Math.floor(i / canvas.width);
  });
  return last;
}, name);

// What is written into the timeline, the frame below it, and the height of its parts above the
// axis, with places as shares of the width.
const written = () => browser.run(() => {
  const {prototype} = CanvasRenderingContext2D;
  const {fillText, strokeRect, fillRect} = prototype;
  const found = [];
  prototype.fillText = (text, x) => found.push([text, x]);
  prototype.strokeRect = (x, y, width) => found.push(['frame', x, x + width]);
  const canvas = document.getElementById('timeline');
  const bars = {};
  prototype.fillRect = function(x, y, width, height) {
    if (this.canvas === canvas && y < canvas.clientHeight - 18) bars[x] = (bars[x] ?? 0) + height;
  };
  canvas.dispatchEvent(new Event('pointercancel'));  // draws
  Object.assign(prototype, {fillText, strokeRect, fillRect});
  const texts =
      found.map(([text, ...places]) => [text, ...places.map((x) => x / canvas.clientWidth)]);
  return [...texts, ['bars', ...Object.values(bars)]];
});

before(async () => {
  for (const each of [dumps, good]) mkdirSync(each);
  lines = writeSample(dumps, LINES);
  writeSample(good, LINES, {healthy: true});
  run('report', dumps, '-o', page);
  run('report', dumps, '--good', good, '-o', compared);
  browser = await Browser.start();
  await browser.cdp(
      'Browser.grantPermissions', {permissions: ['clipboardReadWrite', 'clipboardSanitizedWrite']});
});

after(async () => {
  await browser?.quit();
  rmSync(folder, {recursive: true});
});

// Whatever a test did, the browser has nothing to complain of.
const check = (name, body) => test(name, async () => {
  await body();
  assert.deepEqual(await browser.console(), []);
});

check('sums up, draws and lists the log', async () => {
  await browser.open(page);
  assert.equal(await textOf('#title'), 'altair');
  assert.equal(
      (await textOf('#tiles')).replace(/\s+/g, ' '),
      'Lines 70,000 3 dumps Span 10 h 16 min Hosts 1 altair Boots 2 1 reboot ' +
          'Gaps 1 15 min 1 s in no dump Restarts 0 0 fresh starts');
  assert.equal(await textOf('#when'), `${timeOf(lines[0])} to ${timeOf(lines.at(-1))}`);
  assert.equal(await browser.run(() => document.title), 'altair: log report');
  assert.equal(await count(), LINES);
  const shown = await rows();
  shown.forEach((row, i) => {
    assert.deepEqual(
        [row.message, row.level, row.tag], [lines[i].message, lines[i].level, lines[i].tag]);
  });
  const label = await browser.run(() => document.getElementById('timeline').ariaLabel);
  const names = {F: 'fatal', E: 'error', W: 'warning', I: 'info', D: 'debug'};
  for (const [level, name] of Object.entries(names)) {
    const all = lines.filter((line) => line.level === level).length.toLocaleString('en-US');
    assert.ok(label.includes(`${all} ${name}`), `${all} ${name} in: ${label}`);
  }
  // As many colours as there are levels, marks, texts and lines.
  const colors = await browser.run(() => {
    const canvas = document.getElementById('timeline');
    const {data} = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
    return new Set(new Uint32Array(data.buffer)).size;
  });
  assert.ok(colors > 8, `${colors} colours`);
  // The worst level stands at the bottom.
  const debug = await drawn('level-D');
  const both = Object.entries(await drawn('level-E')).filter(([column]) => column in debug);
  assert.ok(both.length > 9);
  for (const [column, row] of both) assert.ok(row > debug[column], `${row}, ${debug[column]}`);
  const media = (value) => browser.cdp(
      'Emulation.setEmulatedMedia', {features: [{name: 'prefers-color-scheme', value}]});
  const of_light = await drawn('level-E');
  await media('dark');
  await browser.settled();
  assert.deepEqual(await drawn('level-E'), of_light, 'in the colours of the night');
  await media('light');
  // Elsewhere the log is of two days, in UTC of one; hours begin at another time.
  await browser.cdp('Emulation.setTimezoneOverride', {timezoneId: 'Australia/Adelaide'});
  await browser.open(compared, `#span=1-${LINES}&line=1`);
  const expectTimes = async (span, first, tick) => {
    for (const place of ['#chips', '#span']) assert.match(await textOf(place), span);
    assert.match((await rows())[0].time, first);
    const has_day = /-\d+ /.test(await textOf('.change .first'));
    assert.equal(has_day, first.source.includes('-'));
    const title = new RegExp(`^Line 1, ${span.source.slice(1, 20)}`);
    assert.match(await textOf('#detail-title'), title);
    const ticks = (await written()).map(([text]) => text).filter((text) => /^\d/.test(text));
    assert.match(ticks.slice(0, 2).join(), tick);
  };
  await expectTimes(/^2026-11-24 16:42:04.* to 2026-11-25 02:5/, /^11-24 16:42:04/, /^17:00,18:00/);
  await browser.click('#utc');
  assert.ok(await browser.find('#utc[aria-pressed=true]'));
  await expectTimes(/^2026-11-24 06:12:04.* to 16:2/, /^06:12:04/, /^07:00,08:00/);
  await browser.cdp('Emulation.setTimezoneOverride', {timezoneId: ''});
  assert.equal(await textOf('#when'), `${timeOf(lines[0])} to ${timeOf(lines.at(-1))} UTC`);
  assert.equal(await browser.run(() => document.querySelectorAll('.tile.bad').length), 1);
  const error = lines.findIndex(isError) + 1;
  await browser.open(page, `#span=${error}-${error}`);
  assert.equal(Object.keys(await drawn('level-E')).length > 0, true, 'of one moment');
  assert.ok(!await isHidden('#clear'));
  // The name of the gap that comes next.
  await browser.open(page, `#span=1-${0.4 * LINES}`);
  assert.ok(Object.keys(await drawn('mark-line')).length > 0);
});

check('shows what decode gives under the same filters', async () => {
  const cases = [
    ['level=E', '*:E', (line) => line.level === 'E'],
    ['tag=store&tag=net', 'store:V', (line) => line.tag === 'store', 'net:V'],
    ['not-tag=web&level=I', '*:I', (line) => line.level === 'I' && line.tag !== 'web'],
    ['pid=1204', '--pid=1204'],
    ['text=FAILED', '--grep=(?i)FAILED'],
    ['text=failed&exact=1', '--grep=failed'],
    ['text=10.0.3.&tag=net', '--grep=10\\.0\\.3\\.', (line) => line.tag === 'net'],
    ['text=^(GET|POST)+.*\\b5\\d\\d\\b&regex=1', '--grep=^(GET|POST) .*\\b5\\d\\d\\b'],
    ['text=(lost|device)[^;]&regex=1', '--grep=(lost|device)[^;]'],
    ['text=late|lost&regex=1&level=W', '--grep=late|lost', (line) => line.level === 'W'],
  ];
  const setCores = (hardwareConcurrency) =>
      browser.cdp('Emulation.setHardwareConcurrencyOverride', {hardwareConcurrency});
  await setCores(1);  // one worker has more than one block
  for (const [hash, argument, wanted = () => true, ...more] of cases) {
    const given = decode(argument, ...more).filter((line) => more.length || wanted(line));
    assert.ok(given.length > 0, hash);
    await browser.open(page, `#${hash}`);
    assert.equal(await count(), given.length, hash);
    assert.equal((await rows())[0].message, given[0].message, hash);
    assert.deepEqual(
        await browser.run(
            () =>
                [document.getElementById('text').value,
                 ...['regex', 'exact'].map((id) => document.getElementById(id).checked)]),
        [
          new URLSearchParams(hash).get('text') ?? '', hash.includes('regex'),
          hash.includes('exact')
        ]);
    await browser.click('#lines');
    await browser.keys('G');
    assert.equal((await rows()).at(-1).message, given.at(-1).message, hash);
  }
  await setCores(2);
});

check('counts follow the filters', async () => {
  await browser.open(page);
  await browser.click('.chip.level-E');
  const errors = lines.filter((line) => line.level === 'E');
  assert.equal(await count(), errors.length);
  const label = await browser.run(() => document.getElementById('timeline').ariaLabel);
  assert.ok(label.endsWith(`: ${errors.length.toLocaleString('en-US')} error`), label);
  // Other levels count as if no level was chosen; tags only within the level.
  const info = lines.filter((line) => line.level === 'I').length.toLocaleString('en-US');
  assert.equal(await textOf('.chip.level-I .count'), info);
  assert.match(await textOf('#levels [aria-pressed=true]'), /^Error/);
  await browser.click('#tab-filters');
  const tags = await browser.run(
      () => [...document.querySelectorAll('#facet-tag .value')].map(
          (value) =>
              [value.querySelector('.name').innerText, value.querySelector('.count').innerText]));
  const store = errors.filter((line) => line.tag === 'store').length;
  assert.deepEqual(tags.find(([tag]) => tag === 'store')[1], store.toLocaleString('en-US'));
  await browser.click('#facet-tag li:first-child .hide');
  assert.ok(await hasFocus('#facet-tag li:first-child .hide'));
  assert.equal(await count(), errors.length - Number(tags[0][1].replace(',', '')));
  await browser.click('#clear');
  assert.equal(await count(), LINES);
  assert.match(await textOf('#facet-pid'), /\b1204\s+web\b/);  // and cache, less often
  await browser.open(page, '#tag=sensor&level=F');
  assert.equal(await textOf('#facet-tag [aria-pressed=true] .count'), '0');
  assert.ok(await browser.find('#facet-tag .value[aria-pressed=false]'));
  await browser.open(page, '#level=F&boot=1&not-tag=sensor');
  assert.ok(await browser.find('#facet-tag .hide[aria-pressed=true]'));
  assert.match(await textOf('#chips'), /level F[^]*boot 1[^]*not tag sensor/);
  await browser.open(page);
  await browser.type('#text', 'no space');
  const full = lines.filter((line) => line.message.includes('no space')).length;
  assert.equal(await count(), full);
  await browser.click('#all');
  assert.match(
      await textOf('#counts'), new RegExp(`^70,000 lines, ${full.toLocaleString('en-US')} m`));
  const match = lines.findIndex(({message}) => message.includes('no space')) + 1;
  await browser.keys('n');
  assert.equal(await selected(), match - 1);
  assert.match(await copiedLine(), /no space/);
  assert.equal(await textOf('#detail-message mark'), 'no space');
  for (const css of ['.pair:nth-child(2) button', '.pair:nth-child(3) button', '#chips button']) {
    await browser.click(css);
    assert.ok(await hasFocus(css), css);
  }
  // A value is either all that is shown or hidden.
  await browser.open(page, `#line=${match}`);
  const isMatch = ({level}) => level === lines[match - 1].level;
  for (const [nth, wanted] of [[1, isMatch], [2, (line) => !isMatch(line)], [2, () => true]]) {
    await browser.click(`.pair:nth-child(1) button:nth-of-type(${nth})`);
    assert.equal(await count(), lines.filter(wanted).length);
  }
  await browser.click('#detail-close');
  assert.ok(await isHidden('#detail'));
  await browser.open(page, `#level=E&text=no space&all=1&line=${match}`);
  for (const {other, message} of await rows()) assert.equal(other, !message.includes('no space'));
  const hits = errors.filter(({message}) => message.includes('no space')).length;
  const [of_errors, of_hits] = [errors.length, hits].map((each) => each.toLocaleString('en-US'));
  assert.equal(await textOf('#counts'), `${of_errors} of 70,000 lines, ${of_hits} matches`);
  await browser.open(page, '#text=no space&all=1&pattern=1');
  assert.match(await textOf('#counts'), /, 0 matches$/);
  await browser.open(page, '#text=no space');
  await search(['frame'], 'Enter');
  assert.match(lines[await selected()].message, /frame/);
  await search(['frame', '']);
  assert.equal(await count(), LINES);
  await browser.click('#regex');
  await search(['a', 'a(']);
  assert.match(await textOf('#text-error'), /nterminated group/);
  await search(['']);
  assert.equal(await textOf('#text-error'), '');
  // Of an address that cannot be searched for, all lines are shown, not those of the one before.
  for (const hash of ['text=no space&span=40000-60000&line=1', 'text=a(&regex=1']) {
    assert.ok(await count() > 0);
    await browser.run((next) => (location.hash = next), hash);
    await browser.settled();
  }
  // What cannot be is left out of it.
  const wrong =
      ['span=0-9', 'span=9-3', `span=1-${LINES + 1}`, 'line=0', `line=${LINES + 1}`, 'sort=x'];
  for (const hash of ['text=a(&regex=1', ...wrong]) {
    await browser.run((next) => (location.hash = next), hash);
    await browser.settled();
    const sort = await textOf('#sorts [aria-pressed=true]');
    assert.deepEqual(
        [await count(), await isHidden('#detail'), sort], [LINES, true, 'most frequent'], hash);
  }
});

test('tells times, and how long something took', () => {
  const rows = [
    [999, '0.999 s'], [9949, '9.9 s'], [9950, '10 s'], [59499, '59 s'], [59700, '1 min'],
    [119700, '2 min'], [3661000, '1 h 1 min'], [3600000 * 24 - 400, '1 d'], [90000000, '1 d 1 h']
  ];
  for (const [ms, text] of rows) assert.equal(durationText(ms), text);
  // On the axis, as short as it can be.
  const ticks =
      [[36000000, '10:00'], [36010000, '10:00:10'], [36060000, '10:01'], [500, '00:00:00.5']];
  for (const [ms, text] of ticks) assert.equal(timeText(ms, true, true, 'tick'), text);
  assert.deepEqual(
      [2000, 2500].map((ms) => timeText(ms, false, false, 'tick')), ['2', '2.500'], 'since boot');
});

check('zooms into a part of the time', async () => {
  // The axis, on which a gap and a reboot take 3 % of the rest each.
  const steps = lines.map(({wall_ms}, i) => i && wall_ms - lines[i - 1].wall_ms);
  const cuts = [0.4, 0.65].map((share) => Math.round(share * LINES));
  const busy = steps.reduce((sum, step, i) => cuts.includes(i) ? sum : sum + step);
  let end = 0;
  const places = steps.map((step, i) => (end += cuts.includes(i) ? 0.03 * busy : step));
  const expectSpan = async (...shares) => {
    const span = /span=(\d+)-(\d+)/.exec(await copied('#link')).slice(1).map(Number);
    span.forEach((line, i) => {
      const share = places[line - 1] / end;
      assert.ok(Math.abs(share - shares[i]) < 0.003, `${share} is not ${shares[i]}`);
    });
    assert.equal(await count(), span[1] - span[0] + 1);
    await browser.run(() => document.getElementById('time').focus());
    return span;
  };
  await browser.open(page);
  const marks = (await written()).map(([text]) => text).filter((text) => /gap|reboot/.test(text));
  assert.deepEqual(marks, ['gap, 15 min 1 s', `reboot, ${durationText(steps[cuts[1]])}`]);
  await browser.drag('#timeline', 0.1, 0.3);
  const [first, last] = await expectSpan(0.1, 0.3);
  assert.equal((await rows())[0].message, lines[first - 1].message);
  const [time] = /^\S+ \S+(?=  .*D \d)/.exec(await contentOf('#hint'));
  assert.ok(Math.abs(Date.parse(`${time}Z`) - lines[last - 1].wall_ms) < 60000, time);
  await address('span=');
  await browser.drag('#overview', 0.8, 1);
  await expectSpan(0.8, 1);
  assert.ok(await isHidden('#hint'));
  await address(`-${LINES}`);
  await browser.run(() => history.back());
  await address(`span=${first}-`);
  await browser.settled();
  await expectSpan(0.1, 0.3);
  const near = (places, ...shares) => shares.forEach(
      (share, i) => assert.ok(Math.abs(places[i] - share) < 0.003, `${places} are not ${shares}`));
  const [from, to] = [first, last].map((line) => lines[line - 1].wall_ms);
  const labels = await written();
  near(labels.find(([text]) => text === 'frame').slice(1), 0.1, 0.3);
  const ticks = labels.filter(([text]) => /^\d+:\d+$/.test(text));
  assert.ok(ticks.length > 3);
  for (const [text, x] of ticks)
    near([x], (Date.parse(`2026-11-24 ${text}Z`) - from) / (to - from));
  // Around the line that is selected only where it is shown.
  await browser.open(page, `#span=${first}-${last}&line=1`);
  await browser.click('#zoom-in');
  await expectSpan(0.15, 0.25);
  await browser.open(page, `#span=${first}-${last}`);
  await browser.click('#zoom-all');
  assert.equal(await count(), LINES);
  await browser.click('#zoom-in');
  await expectSpan(0.25, 0.75);
  await browser.run(
      (init) => document.activeElement.dispatchEvent(new KeyboardEvent('keydown', init)),
      {key: '+', metaKey: true});
  await browser.keys('\uE014');  // to the right
  await expectSpan(0.375, 0.875);
  await browser.keys('\uE012');
  await expectSpan(0.25, 0.75);
  await browser.keys('+');
  await expectSpan(0.375, 0.625);
  await browser.keys('-');
  await expectSpan(0.25, 0.75);
  await browser.drag('#overview', 0.6, 1);
  await expectSpan(0.6, 1);
  await browser.click('#overview');
  await expectSpan(0.3, 0.7);
  await browser.drag('#overview', 0.9, 0.6);
  await expectSpan(0.6, 0.9);
  await browser.keys('\uE012'.repeat(9));
  await expectSpan(0, 0.3);
  await browser.run(() => {  // the right button does something else
    for (const type of ['pointerdown', 'pointerup']) {
      document.getElementById('timeline').dispatchEvent(new PointerEvent(type, {button: 2}));
    }
  });
  assert.ok(await isHidden('#detail'));
  await browser.run(() => document.getElementById('timeline').dispatchEvent(new Event('dblclick')));
  assert.equal(await count(), LINES);
  assert.deepEqual(
      await browser.run(() => [...document.querySelectorAll('button:disabled')].map(({id}) => id)),
      ['zoom-out', 'zoom-all']);
  for (const css of ['#zoom-out', '#chips button', '#clear']) {
    await browser.click('#zoom-in');
    await browser.click(css);
    assert.equal(await count(), LINES, css);
  }
  await browser.click('#zoom-in');
  await browser.run(() => document.getElementById('time').focus());
  await browser.keys('0\uE004');  // and with Tab away
  assert.equal(await count(), LINES);
  assert.ok(!await hasFocus('#time'));
  await browser.open(page, `#line=${last}`);
  const width = await browser.run(() => document.getElementById('timeline').width);
  near(Object.keys(await drawn('accent')).map((column) => column / width), 0.3);
  await browser.click('#zoom-in');
  await expectSpan(0.05, 0.55);
});

check('moves over breaks, and has what all sources of a process log', async () => {
  // Seven lines in a tenth of a second, one a minute later, and after another minute seven of other
  // processes: their number is found by the tag, the tag by the sum of all threads and levels.
  const early = [...'DDIIWWW'].map((level, i) => {
    const [tag, tid] = level === 'W' ? ['few', 0] : ['many', i];
    return {
      time_ms: 1000 + i,
      level,
      tag,
      pid: 1,
      tid,
      message: i ? 'early' : '\ufefflong '.repeat(999)
    };
  });
  const late =
      early.map((line, i) => ({...line, time_ms: 121000 + i, tag: 'late', pid: 20 + 2 * i}));
  const lines = [...early, {...early[0], time_ms: 61000}, ...late];
  const file = join(folder, 'breaks.html');
  const dump = join(folder, 'breaks.dump');
  writeFileSync(
      dump, buildDump(lines, {boot: 'd'.repeat(32), host: 'h', booted_ms: 86400000 - 90000}));
  run('report', dump, '-o', file);
  await browser.open(file, '#span=1-7&utc=1');
  assert.equal(
      await copied('#copy'), run('decode', '--utc', dump).split(/(?<=\n)/).slice(0, 7).join(''));
  await browser.run(() => document.getElementById('time').focus());
  for (const [key, tag] of [['\uE014', 'late'], ['\uE012', 'many']]) {  // right, left
    await browser.keys(key.repeat(20));
    assert.equal((await rows())[0].tag, tag);
  }
  for (let i = 0; i < 20 && await count() < lines.length; i++) await browser.click('#zoom-out');
  assert.equal(await count(), lines.length);
  const drawing = await written();
  const [most, ...others] = drawing.at(-1).slice(1);
  assert.deepEqual(others.map((height) => Math.round(most / height)), [7, 1]);
  // A pause in which nothing is missing has its room.
  for (const words of ['7 lines', '23:59']) assert.ok(drawing.some(([text]) => text === words));
  const hint = await browser.run(() => {
    const canvas = document.getElementById('timeline');
    const clientX = canvas.getBoundingClientRect().left + 1;
    canvas.dispatchEvent(new PointerEvent('pointermove', {clientX}));
    return document.getElementById('hint').textContent;
  });
  assert.match(hint, /^1970-01-01 23:58:31\.\d+  W 3  I 2  D 2$/);
  await browser.drag('#timeline', 0.2, 0.4);
  assert.deepEqual([await count(), await textOf('#said')], [lines.length, 'No lines there']);
  assert.equal(await contentOf('.entry .first'), 'from 01-01 23:58:31');
  const processes = () => browser.run((words) => {
    const field = document.querySelector('[aria-label="Find processes"]');
    field.value = words;
    field.dispatchEvent(new Event('input'));
    return [...document.querySelectorAll('#facet-pid .name')].map((name) => name.textContent);
  }, 'MANY');
  assert.deepEqual(await processes(), ['1  many']);
  // The clock of a zone as it was then: half an hour less than it is now.
  await browser.cdp('Emulation.setTimezoneOverride', {timezoneId: 'Asia/Singapore'});
  await browser.open(file);
  assert.equal(await contentOf('.entry .first'), 'from 07:28:31');
  await browser.click('#utc');
  assert.equal(await contentOf('.entry .first'), 'from 01-01 23:58:31');
  await browser.cdp('Emulation.setTimezoneOverride', {timezoneId: ''});
  // A page whose lines are damaged says so.
  const source = readFileSync(file, 'utf8');
  writeFileSync(file, source.replace(/(id="text-0"[^>]*>)\s*..../, '$1AAAA'));
  await browser.open(file);
  assert.match(await textOf('#loading'), /^The log could not be unpacked: ./);
  assert.ok((await browser.console()).length > 0);
});

check('jumps to a time, to matches and to both ends', async () => {
  await browser.open(page);
  // Keys of the browser, and of an open help, are not the page's.
  await browser.run(() => {
    for (const other of ['ctrlKey', 'altKey', 'metaKey'])
      document.body.dispatchEvent(
          new KeyboardEvent('keydown', {key: 'G', [other]: true, bubbles: true}));
  });
  await browser.keys('?G');
  assert.match(await textOf('#program'), /^trelvoctl \d/);
  assert.ok(await isHidden('#detail'));
  await browser.click('#help button');
  assert.equal(await copiedLine(), '', 'as no line is selected');
  // From what is in view.
  await browser.run(() => (document.getElementById('lines').scrollTop = 9e5));
  await browser.settled();
  const place = (await rows())[0].place - 1;
  assert.ok(place > 9999);
  await browser.keys('n');
  assert.equal(await selected(), lines.findIndex((line, i) => i >= place && isError(line)));
  await browser.click('#timeline');
  const middle = await selected();
  assert.ok(middle > LINES * 0.4 && middle < LINES * 0.6, `line ${middle}`);
  const next = lines.findIndex((line, i) => i > middle && isError(line));
  await browser.keys('n');
  assert.equal(await selected(), next);
  await browser.keys('N');
  assert.equal(
      await selected(),
      lines.findLastIndex?.((line, i) => i < next && isError(line)) ??
          lines.slice(0, next).map(isError).lastIndexOf(true));
  await browser.keys('G');
  assert.equal(await selected(), LINES - 1);
  assert.equal((await rows()).at(-1).place, String(LINES));
  await browser.keys('g');
  await address('line=1');
  assert.equal(await selected(), 0);
  assert.equal(await textOf('#detail-message'), lines[0].message);
  assert.equal(await textOf('#detail-title'), `Line 1, ${timeOf(lines[0])}, boot 1`);
  const {tag, pid, tid} = lines[0];
  assert.match(
      (await textOf('#detail-filters')).replace(/\s+/g, ' '),
      new RegExp(`Debug .*tag ${tag} .*process ${pid} .*thread ${tid} .*pattern \\d+ only hide$`));
  assert.equal(await copiedLine(), run('decode', dumps).split('\n', 1)[0] + '\n');
  await browser.run(
      () => getSelection().selectAllChildren(document.getElementById('detail-message')));
  assert.equal(await copiedLine(), '', 'but what is marked');
  await browser.keys('/');
  assert.equal(await browser.run(() => document.activeElement.id), 'text');
  assert.equal(await copiedLine(), '', 'but what is marked in the field');
  await browser.keys('\uE00C');  // Escape
  const is_help_open = () => browser.run(() => document.getElementById('help').open);
  for (const ask of [() => browser.keys('?'), () => browser.click('#help-open')]) {
    await ask();
    assert.ok(await is_help_open());
    await browser.click('#help button');
    assert.ok(!await is_help_open());
  }
  for (const level of 'FE') {
    await browser.open(page, `#level=${level}&line=1`);  // which the filter hides
    await browser.click('#previous');
    assert.equal(await textOf('#said'), 'No error above');
    await browser.click('#next');
    assert.equal(await selected(), lines.findIndex((line) => line.level === level));
  }
  await browser.type('#text', 'no space');
  await browser.keys('\uE007');  // Enter
  assert.equal(await selected(), lines.findIndex(({message}) => message.includes('no space')));
  await browser.type('#text', '\uE008\uE007');  // Shift and Enter
  assert.equal(await textOf('#said'), 'No match above');
  await browser.keys('\uE00C');  // Escape leaves the field as it is
  assert.equal(await browser.run(() => document.getElementById('text').value), 'no space');
  await browser.keys('/x');  // instead of it
  assert.equal(await browser.run(() => document.getElementById('text').value), 'x');
  await browser.run(() => (navigator.clipboard.writeText = () => Promise.reject()));
  await browser.click('#link');
  assert.match(await textOf('#said'), /not let this page copy/);
});

check('marks where lines are missing', async () => {
  await browser.open(page, `#line=${Math.round(LINES * 0.4) + 1}`);
  assert.deepEqual((await rows()).map((row) => row.mark).filter(Boolean), ['gap']);
  // Also in front of the first line behind it that passes the filters.
  await browser.open(page, '#level=F');
  const fatal = lines.filter((line) => line.level === 'F');
  assert.equal(await count(), fatal.length);
  assert.equal((await rows())[0].mark, 'gap');
  // The last one of several takes the focus to the one before.
  await browser.open(page, '#level=E&not-tag=net');
  await browser.click('#chips button:last-of-type');
  assert.ok(await hasFocus('#chips button'));
  await browser.open(page, '#not-tag=');
  assert.match(await textOf('#chips'), /^not tag \(empty\)/);
  // Beyond the first block, and times beyond the second.
  const [later, longer] = ['later.dump', 'longer.html'].map((name) => join(folder, name));
  const made = lines.map((line, i) => ({...line, time_ms: i + 1}));
  const booted_ms = lines.at(-1).wall_ms + 60000;
  writeFileSync(later, buildDump(made, {host: 'altair', boot: 'c'.repeat(32), booted_ms}));
  run('report', dumps, later, '-o', longer);
  await browser.open(longer, `#line=${LINES + 1}`);
  assert.deepEqual((await rows()).map((row) => row.mark).filter(Boolean), ['reboot']);
  await browser.open(longer, `#line=${2 * LINES}`);
  assert.equal((await rows()).at(-1).time, timeOf({wall_ms: booted_ms + LINES}).slice(11));
  assert.equal((await copied('#copy')).match(/\n/g).length, 100000, 'the most that is copied');
  assert.equal(said, 'Copied 100,000 lines of 140,000: the most that is copied');
});

check('follows a link to what was seen', async () => {
  await browser.open(page);
  await browser.click('.chip.level-W');
  await address('level=W');
  await browser.type('#text', 'retry');
  await address('text=retry');
  await browser.drag('#overview', 0.05, 1);
  await browser.keys('n');
  await address('span=');
  await browser.click('#sorts [value=new]');
  await address('sort=new');
  await browser.keys('n');
  await address(`line=${await selected() + 1}`);
  const link = await copied('#link');
  assert.equal(link.replace(/.*#/, '#'), await address('sort=new'));
  const seen = [await count(), await selected(), await rows(), await textOf('#chips')];
  // Back to the filter before, not to each line that was selected or each text that was typed.
  await browser.run(async () => {
    history.back();
    while (location.hash.includes('span=')) await new Promise((resolve) => setTimeout(resolve, 20));
  });
  const before_all = await browser.run(
      () => new Promise((resolve) => {
        addEventListener('hashchange', () => resolve(location.hash), {once: true});
        history.back();
      }));
  assert.equal(before_all, '');
  // All that an address may say is kept in it.
  const full = 'text=a&regex=1&exact=1&all=1&level=D&tag=sensor&not-tid=3&span=1-100&line=3&utc=1';
  await browser.open(page, `#${full}`);
  assert.equal((await copied('#link')).replace(/.*#/, ''), full);
  await browser.open(page, link.replace(/.*#/, '#'));
  assert.deepEqual([await count(), await selected(), await rows(), await textOf('#chips')], seen);
  // A filter that another address overtook is not led back to.
  await browser.run(() => {
    location.hash = 'level=E';
    document.querySelector('.chip.level-F').click();
  });
  await browser.keys('n');
  await address('level=E&line=');
  await browser.run(() => history.back());
  await address('sort=new');
});

check('has each message, whatever else is asked for', async () => {
  // A copy of more than the page keeps leaves what is in view, and the selected line.
  await browser.open(page, '#line=2');
  const decoded = run('decode', dumps).split(/(?<=\n)/).filter((line) => !line.startsWith('-'));
  assert.equal(await copied('#copy'), decoded.join(''));
  assert.equal(await copiedLine(), decoded[1]);
  assert.equal(said, 'Copied 70,000 lines');
  const [paper, title] = await browser.run(() => {
    const printed = (name) => {
      dispatchEvent(new Event('beforeprint'));
      return document.getElementById(`print-${name}`).textContent;
    };
    const seen = printed('lines');
    document.querySelector('.chip.level-W').click();  // whose messages take a moment
    return [seen, printed('title')];
  });
  assert.ok(paper.startsWith(decoded.slice(0, 9).join('')), paper);
  assert.match(title, /^Lines 1 to 500 of /);
  await browser.open(page, `#line=${LINES}`);
  const [{place}] = await rows();
  const end = await browser.run(() => {
    dispatchEvent(new Event('beforeprint'));
    return ['title', 'lines'].map((name) => document.getElementById(`print-${name}`).textContent);
  });
  const number = Number(place).toLocaleString('en-US');
  assert.deepEqual(end, [`Lines ${number} to 70,000 of 70,000`, decoded.slice(place - 1).join('')]);
  // The workers are stuck in an expression and make room for new ones, which search for the next.
  const cases =
      [[[], /too long/], [['('], /nterminated/], [['frame'], /^$/, /lines, \d+,\d+ matches/]];
  for (const [next, error, matches = /lines$/] of cases) {
    await browser.open(page, '#regex=1&all=1');
    await browser.run(() => {
      const later = setTimeout;
      globalThis.setTimeout = (action, ms) => later(action, Math.min(ms, 500));
    });
    await search(['(.+)+;', ...next], 'G');
    assert.match(await textOf('#text-error'), error);
    assert.match(await textOf('#counts'), matches);
    const {message, time} = (await rows()).at(-1);
    assert.deepEqual([message, time], [lines.at(-1).message, timeOf(lines.at(-1)).slice(11)]);
    assert.equal(await textOf('#detail-message'), message);
  }
});

check('lists patterns, and filters by one', async () => {
  const patterns = run('patterns', '-o', 'json', dumps)
                       .split('\n')
                       .filter(Boolean)
                       .map((line) => JSON.parse(line));
  const shown = () => browser.run(
      () => [...document.querySelectorAll('.pattern:not([hidden])')].map(
          (row) => ({
            text: row.querySelector('.text').textContent,
            count: Number(row.querySelector('.count').textContent.replaceAll(',', '')),
            bars: row.querySelector('path').getAttribute('d').split('z').length - 1,
            tall: Math.max(
                ...row.querySelector('path').getAttribute('d').match(/(?<=0\.8v)[\d.]+/g) ?? []),
            levels: row.className.match(/level-./g).join(),
          })));
  await browser.open(page);
  (await shown()).forEach(({text, count, bars, tall}, i) => {
    assert.deepEqual([text, count, tall], [patterns[i].text, patterns[i].count, 10]);
    assert.ok(bars > 20, text);
  });
  await browser.run(() => document.getElementById('patterns').focus());
  for (const [keys, passed] of [['\uE015\uE007', patterns[0].count], ['\uE007', LINES]]) {
    await browser.keys(keys);  // down, Enter; once more
    assert.equal(await count(), passed);
  }
  await browser.click('#sorts [value=level]');
  const worst = await shown();
  assert.equal(worst[0].text, patterns.find(({level}) => level === 'F').text);
  assert.equal(worst[0].levels, 'level-F');
  for (const {levels} of worst) assert.match(levels, /^level-.$/);
  await browser.click('#sorts [value=new]');
  const newest = patterns.reduce((a, b) => {
    const time = ({first}) => Date.parse(first.time);
    return time(b) > time(a) ? b : a;
  });
  const [first] = await shown();
  assert.equal(first.text, newest.text);
  assert.ok(first.bars < 20);
  await browser.click('.pattern .text');
  assert.equal(await count(), newest.count);
  const levels = (await textOf('#levels')).match(/\d+/g).map(Number);
  assert.equal(levels.reduce((sum, lines) => sum + lines), newest.count);
  await browser.click('.pattern .hide');
  assert.ok(await browser.find('.pattern.hidden .hide[aria-pressed=true]'));
  assert.equal(await count(), LINES - newest.count);
  // Their counts follow the other filters, not the choice of one of them.
  const ofStore = {};
  for (const line of run('patterns', '--lines', '-o', 'json', dumps).split('\n').filter(Boolean)) {
    const {tag, pattern} = JSON.parse(line);
    const {text} = patterns.find((each) => each.pattern === pattern);
    if (tag === 'store') ofStore[text] = (ofStore[text] ?? 0) + 1;
  }
  await browser.open(page, '#tag=store');
  for (const action of [() => {}, () => browser.click('.pattern .text')]) {
    await action();
    const counts = (await shown()).filter(({count}) => count > 0);
    assert.deepEqual(Object.fromEntries(counts.map(({text, count}) => [text, count])), ofStore);
    assert.equal(await textOf('#pattern-count'), String(counts.length));
  }
  const chosen = await contentOf('.pattern.focused .text');
  await browser.click('#sorts [value=level]');
  assert.equal(await contentOf('.pattern.focused .text'), chosen, 'wherever it is now');
  await browser.open(page, '#span=45001-70000');
  assert.ok((await shown())[0].bars > 28);
  await browser.open(page, '#span=1-2');  // the last moment has its bar, too
  assert.deepEqual((await shown()).map(({bars}) => bars), [1, 1]);
  await browser.open(page, '#pattern=1&pattern=2');
  assert.equal(
      await browser.run(() => document.querySelectorAll('#patterns [aria-selected=true]').length),
      2);
  // One that this page lacks is as good as none.
  await browser.open(page, `#level=F&not-pattern=1&not-pattern=${patterns.length + 1}`);
  assert.equal((await shown()).at(-1).text, patterns[0].text);
});

check('lists what changed as compare does, and filters by it', async () => {
  // A healthy log of lines that came once: what is new in the other one is so by chance. Lines
  // whose words turn out to be values become one change late.
  const words = ['alpha', 'beta', 'gamma', 'delta', 'epsilon'];
  const workers = words.map((word) => `worker ${word} started again after a pause`);
  const [once, tock] =
      [['tick', ...words], ['tock', 'new one', ...workers]].map(([steady, ...messages]) => {
        const file = join(folder, `${steady}.dump`);
        const made = Array.from({length: 200}, () => steady)
                         .concat(messages)
                         .map(
                             (message, i) => (
                                 {time_ms: 50 * i, level: 'I', tag: 'a', pid: 1, tid: 1, message}));
        const beats =
            Array.from({length: 1000}, (_, i) => ({...made[0], time_ms: 10 * i, message: 'beat'}));
        const burst = Array.from({length: steady === 'tock' ? 500 : 0}, () => beats[640]);
        writeFileSync(
            file, buildDump([...made, ...beats, ...burst].sort((a, b) => a.time_ms - b.time_ms)));
        return file;
      });
  // A boot before, in which the time of the burst comes as well.
  const often = join(folder, 'often');
  mkdirSync(often);
  const beat = {time_ms: 20000, level: 'I', tag: 'a', pid: 1, tid: 1, message: 'beat'};
  writeFileSync(join(often, '1.dump'), buildDump([beat]));
  renameSync(tock, join(often, '2.dump'));
  const file = join(folder, 'often.html');
  run('report', often, '--good', once, '-o', file);
  const shown = () => browser.run(
      () => [...document.querySelectorAll('.change:not([hidden])')].map(
          (row) => [...row.children]
                       .map((part) => part.textContent)
                       .concat(row.lastChild.title, row.classList.contains('weak'))));
  await browser.cdp(
      'Emulation.setDeviceMetricsOverride',
      {width: 1280, height: 1600, deviceScaleFactor: 1, mobile: false});
  for (const [path, ...sides] of [[file, once, often], [compared, good, dumps]]) {
    const {changes, doubtful} = JSON.parse(run('compare', '-o', 'json', ...sides));
    const text = run('compare', ...sides).split('\n').slice(0, -1);
    const labels = text.slice(3).map((row) => row.slice(0, 6).trim());
    await browser.open(path);
    assert.equal(await textOf('#changes-summary'), text.slice(0, 2).join('\n').split(': "')[0]);
    assert.match(await textOf('[role=tab][aria-selected=true]'), /^changes/i);
    assert.equal(await textOf('#change-count'), String(changes.length));
    await browser.run(() => dispatchEvent(new Event('beforeprint')));
    const on_paper = (await contentOf('#print-changes')).match(/^.+ → .+$/gm).length;
    assert.equal(on_paper, changes.length, 'none that is doubtful');
    assert.match(await textOf('#tiles'), new RegExp(`Changes\\s+${changes.length}\\s`));
    const all = [...changes, ...doubtful];
    assert.deepEqual(await shown(), all.map((change, i) => {
      const {level, tag, text, example, at, good: {count}, bad} = change;
      const counts = [count, bad.count].map((number) => number.toLocaleString('en-US'));
      const time = at.time?.slice(bad.count ? 11 : 5, 19).replace('T', ' ') ??
          (at.time_ms / 1000).toFixed(3);
      const first = `${bad.count ? 'from' : 'last'} ${time}`;
      return [
        labels[i], level, counts.join(' → '), first, `${tag}: ${example}`, text, i >= changes.length
      ];
    }));
    const total = await count();
    for (const [i, {example, bad}] of all.entries()) {
      const row = `.change:nth-child(${i + 1}) .text`;
      await browser.click(row);
      assert.equal(await count(), bad.count || total);
      if (!bad.count) {
        assert.match(await textOf('#said'), /healthy log only/);
        continue;
      }
      if (labels[i] === 'burst') assert.match(await textOf('#detail-title'), / 6\.4/);
      assert.equal(await textOf('#detail-message'), example);
      assert.ok(await browser.find(`[aria-label="only change ${i + 1}"][aria-pressed=true]`));
      assert.equal(
          await textOf('#chips .name'), `change ${labels[i]}: ${all[i].tag}: ${all[i].text}`);
      await browser.click(row);
    }
  }
  await browser.click('.change:nth-child(2) .text');
  await browser.keys('\uE015\uE007');  // down, Enter
  await browser.open(compared, await address('change=2&change=3'));
  const [, second, third] = (await shown()).map((row) => Number(row[2].split('→ ')[1]));
  assert.equal(await count(), second + third);
  await browser.run(() => document.getElementById('tab-changes').focus());
  for (const [key, tab] of [['\uE012', /^filters/i], ['\uE014', /^changes/i]]) {  // left, right
    await browser.keys(key);
    assert.match(await textOf('[role=tab][aria-selected=true]'), tab);
    assert.ok(await hasFocus('[aria-selected=true][tabindex="0"]'));
  }
});

check('scrolls to any line', async () => {
  await browser.open(page);
  const scroll = async (share, row = '') => {
    await browser.run((part, height) => {
      const list = document.getElementById('lines');
      list.style.setProperty('--row', height);
      list.dispatchEvent(new Event('scroll'));
      list.scrollTop = part * (list.scrollHeight - list.clientHeight);
    }, share, row);
    await browser.settled();
  };
  // First with rows so high that browsers cannot place all of them.
  for (const [share, row] of [[0.5, '300px'], [1], [0.5], [0.001]]) {
    await scroll(share, row);
    const shown = await rows();
    assert.ok(Math.abs(shown[0].place / LINES - share) < 0.001, `${shown[0].place} at ${share}`);
    for (const {place, message} of shown) assert.equal(message, lines[place - 1].message);
  }
  await browser.click('.line:nth-child(2) .message');  // the first one is cut
  for (const [key, line] of [['\uE010', LINES - 1], ['\uE013', LINES - 2], ['\uE011', 0]]) {
    await browser.keys(key);  // End, up, Home
    assert.equal(await selected(), line);
    assert.ok((await rows()).some(({place}) => place === String(line + 1)));
    assert.ok(await browser.run(
        () => document.getElementById(document.activeElement.getAttribute('aria-activedescendant'))
                  .matches('[aria-selected=true]')));
  }
  await browser.keys('\uE00F\uE00F\uE00E');  // twice a page down, one up
  const page_size = await selected();
  assert.ok(page_size > 1 && page_size < (await rows()).length, `${page_size} lines`);
  await browser.keys('\uE00E');
  assert.equal(await selected(), 0);
  const chosen = '#lines [aria-selected=true]';
  const places = () => browser.run(
      (...all) => all.map((css) => document.querySelector(css).getBoundingClientRect()), '#lines',
      chosen);
  await browser.keys('\uE015'.repeat(60));  // down
  const [list, row] = await places();
  assert.ok(row.bottom <= list.bottom + 1, `${row.bottom} is below ${list.bottom}`);
  // Where a pixel of the scroll bar is 14 of the lines, too.
  await scroll(0.3, '3000px');
  await browser.keys('\uE015');
  const [view, far] = await places();
  assert.ok(Math.abs(far.bottom - view.bottom) < 2, `${far.bottom} is not at ${view.bottom}`);
  await scroll(0);
  // A filter keeps the place, whether a line is selected elsewhere, was so, or none passes.
  await scroll(0.5);
  let before = await rows();
  await browser.click('#exact');
  assert.deepEqual(await rows(), before);
  await browser.click('.line:nth-child(5) .message');
  await browser.keys('\uE00C');  // Escape
  assert.equal(await browser.run((css) => document.querySelector(css), chosen), null);
  before = await rows();
  await browser.click('#exact');
  assert.deepEqual(await rows(), before);
  await browser.type('#text', 'no such words');
  await browser.run(() => document.getElementById('lines').focus());
  await browser.keys('\uE011');  // Home
  assert.ok(await isHidden('#detail'));
  await browser.click('#clear');
  assert.deepEqual(await rows(), before);
  await browser.keys('/\uE00C\uE013');  // to the list, one up from its first line
  assert.equal(await selected(), before[0].place - 2);
  // As does a line that is selected in view.
  await scroll(0.5);
  await browser.click('.line:nth-child(5) .message');
  const top = () => browser.run(
      (css) => Math.round(document.querySelector(css).getBoundingClientRect().top), chosen);
  const at = await top();
  await browser.click('#detail-filters .pair:nth-child(2) button');
  assert.ok(Math.abs(await top() - at) < 20, 'within a row');
});

check('is usable on a small screen, by name and on paper', async () => {
  await browser.open(compared, '#level=F&line=40000');
  await browser.screenshot(join(folder, 'narrow.png'), {width: 400});
  assert.ok(await browser.run(() => document.documentElement.scrollWidth <= 400));
  assert.ok(await browser.run(() => document.getElementById('timeline').width < 400));
  const nameless = await browser.run(
      () => [...document.querySelectorAll('button, input, canvas, [tabindex]')]
                .filter((item) => !(item.ariaLabel || item.innerText || item.labels?.length))
                .map((item) => item.id || item.outerHTML));
  assert.deepEqual(nameless, []);
  const fatal = lines.filter((line) => line.level === 'F');
  const printed = await browser.run(async () => {
    const text = document.getElementById('print-lines');
    do {
      dispatchEvent(new Event('beforeprint'));
      await new Promise((resolve) => setTimeout(resolve, 20));
    } while (text.textContent.includes('): …\n'));
    return text.textContent.split('\n');
  });
  assert.equal(printed.length - 1, Math.min(500, fatal.length));
  assert.equal(printed[0], run('decode', dumps, '*:F').split('\n')[1]);
  assert.equal(
      await contentOf('#print-title'), `Lines 1 to ${printed.length - 1} of ${fatal.length}`);
  assert.match(await contentOf('#print-changes'), /^good: .*\n.* changed\nnew +E 0 → /);
  const visible = async (media) => {
    await browser.cdp('Emulation.setEmulatedMedia', {media});
    return browser.run(
        () => ['tiles', 'timeline', 'print', 'lines'].map(
            (id) => document.getElementById(id).checkVisibility()));
  };
  assert.deepEqual(await visible('print'), [true, true, true, false]);
  assert.deepEqual(await visible(''), [true, true, false, true]);
  await browser.screenshot(join(folder, 'wide.png'));
});

check('never takes a log for markup or script', async () => {
  const hostile = join(folder, 'hostile.dump');
  const {image, lines: given} = hostileDump(3000);
  writeFileSync(hostile, image);
  const file = join(folder, 'hostile.html');
  run('report', hostile, '--good', good, '-o', file);
  const source = readFileSync(file, 'latin1');
  assert.ok(!source.includes('<img src=x') && source.endsWith('</html>\n'));
  await browser.open(file);
  const elements = () => browser.run(
      () => ['script', 'img', 'iframe', 'b', 'style', 'a'].map(
          (kind) => document.querySelectorAll(kind).length));
  const [scripts] = await elements();
  assert.deepEqual(await elements(), [scripts, 0, 0, 0, 1, 0]);
  assert.equal(await copied('#copy'), run('decode', hostile));
  // What is in view, too, has nothing that hides or turns text.
  for (const tab of ['changes', 'patterns', 'filters']) {
    await browser.click(`#tab-${tab}`);
    assert.match(await textOf('[role=tab][aria-selected=true]'), new RegExp(tab, 'i'));
    const text = await textOf(`#pane-${tab}`) + await textOf('#lines');
    assert.match(text, /<(img|b|script)|\\x/, tab);
    assert.doesNotMatch(
        text, /[\u202a-\u202e\u2066-\u2069\u0000-\u0008\u000b-\u001f\u0080-\u009f]/);
  }
  const tags = () => browser.run(
      () => [...document.querySelectorAll('#facet-tag .name')].map((name) => name.textContent));
  assert.deepEqual([(await tags()).length, await textOf('#facet-tag-more')], [10, '1 more']);
  const counts = await browser.run(
      () => [...document.querySelectorAll('#facet-tag .count')].map(
          (each) => Number(each.innerText)));
  assert.deepEqual(counts, [...counts].sort((a, b) => b - a));
  await browser.click('#facet-tag-more');
  assert.equal(await textOf('#facet-tag-more'), 'fewer');
  const all = await tags();
  assert.ok(all.includes('(empty)') && all.includes('l\\x0Af') && all.length === 11, all.join());
  await browser.click('#facet-tag-more');
  assert.equal((await tags()).length, 10);
  await browser.type('[aria-label="Find tags"]', 'WORDS');
  assert.deepEqual(await tags(), ['two words']);
  await browser.keys('n');  // which leads to an error elsewhere
  assert.deepEqual([await tags(), await isHidden('#detail')], [[], true]);
  await browser.open(file, `#${new URLSearchParams({tag: '<img src=x onerror=alert(1)>'})}`);
  assert.ok(await count() > 0);
  assert.ok((await textOf('#chips')).includes('<img src=x onerror=alert(1)>'));
  assert.deepEqual(await elements(), [scripts, 0, 0, 0, 1, 0]);
  // What may end a line within a message ends no message.
  const words = /^word|word$/;
  await browser.open(file, `#${new URLSearchParams({text: words.source, regex: '1'})}`);
  const found = given.filter(({message}) => words.test(message.toString('latin1')));
  assert.equal(await count(), found.length);
  await browser.open(file, `#${new URLSearchParams({text: '\\tw', regex: '1'})}`);
  await rows();
  assert.match(await contentOf('.line mark'), /^\\x09w$/);
  // Were something of a log a script nevertheless, the browser would not run it.
  assert.deepEqual(await browser.console(), []);
  const fetched = () => fetch('data:,x').then(() => true, () => false);
  assert.equal(await browser.run(fetched), false);
  assert.ok((await browser.console()).length > 0);
  const ran = await browser.run(() => {
    const script = document.createElement('script');
    script.textContent = 'globalThis.ran = true';
    document.body.append(script);
    const base = document.createElement('base');
    base.href = 'https://elsewhere.example/';
    document.head.append(base);
    return globalThis.ran ?? document.baseURI.startsWith('https');
  });
  assert.equal(ran, false);
  assert.equal((await browser.console()).length, 2);
});

check('tells what is damaged, and times without a clock', async () => {
  const line = (time_ms, message) => ({time_ms, level: 'D', tag: '日本', pid: 1, tid: 2, message});
  const image = buildDump([line(1000, 'one'), line(2500, 'two'), line(2600, 'three')]);
  const damaged = join(folder, 'damaged');
  const dump = join(damaged, 'damaged.dump');
  const file = join(folder, 'damaged.html');
  mkdirSync(damaged);
  writeFileSync(dump, image.subarray(0, image.length - 2));
  const given = (...args) => spawnSync(trelvoctl, args, {encoding: 'utf8'});
  assert.equal(given('report', damaged, '-o', file).status, 3);
  await browser.open(file);
  assert.equal(await textOf('#title'), 'Log');
  assert.match(await textOf('.tile.bad'), /^Damaged\s+1/);
  assert.match(await textOf('#damage'), /damaged\.dump: offset \d+: /);
  assert.deepEqual((await rows()).map((row) => row.message), ['one', 'two']);
  assert.match(await textOf('#when'), /to \d+\.\d{3} s since boot/);
  assert.ok(await isHidden('#utc'));
  assert.equal(await copied('#copy'), given('decode', damaged).stdout);
  // The same beside what is whole and has a clock, which was set back for the next boot: only its
  // own times are marked.
  writeFileSync(join(damaged, 'whole.dump'), readFileSync(join(dumps, '1.dump')));
  const clock = {boot: 'c'.repeat(32), host: 'altair', booted_ms: 0};
  for (const [name, time, settings] of [
           ['later', 9, {}], ['back', 3, clock], ['again', 2, clock]]) {
    const path = join(damaged, `${name}.dump`);
    writeFileSync(path, buildDump([line(1000 * time, name), line(10000 - time, name)], settings));
    utimesSync(path, 4e9 - time, 4e9 - time);
  }
  const words = ['--utc', damaged, 'net:F', '日本:V'];
  assert.equal(given('report', ...words, '-o', file).status, 3);
  await browser.open(file);
  const told = given('decode', ...words).stdout;
  const shown = await rows();
  const marked = shown.filter(({time}) => time.startsWith('≤'));
  assert.deepEqual(
      marked.map(({time, message}) => `≤2026-${time.slice(1)}Z D/日本 (P 1, T 2): ${message}`),
      told.match(/^≤.*/gm).map((text) => text.replace(/ +/g, ' ')));
  assert.deepEqual(
      shown.map(({mark}) => mark).filter(Boolean),
      told.match(/^-+ \w+/gm).map((text) => text.replace(/^-+ /, '')));
  assert.match(await textOf('#tiles'), /Span\s+20781 d 6 h/);
  assert.match(await textOf('#tiles'), /Restarts\s+2\s+0 fresh starts/);
  assert.match(await textOf('#span'), /^1970-01-01 .* to 2026-/);
  assert.equal(await copied('#copy'), told.replace(/^---.*\n/gm, ''));
  await browser.click('#utc');
  assert.equal(
      await copied('#copy'), given('decode', ...words.slice(1)).stdout.replace(/^---.*\n/gm, ''));
  assert.match(await copied('#link'), /#utc=0$/);
  // A gap that the clock tells no length of, behind what two dumps have (and a clock line).
  const [back, twice, gap] = ['back', 'twice', 'gap'].map((name) => join(damaged, `${name}.dump`));
  writeFileSync(twice, readFileSync(back));
  writeFileSync(gap, buildDump([line(9997, 'late')], {...clock, delta_ms: 5}));
  run('report', back, twice, gap, '-o', file);
  await browser.open(file);
  assert.match(
      (await textOf('#tiles')).replace(/\s+/g, ' '),
      /Gaps 1 of unknown length .* Left out 3 repeated/);
  assert.match(await textOf('.tile.bad'), /^Gaps/);
  // A clock that is set, of which the axis and the span have nothing.
  const set = join(damaged, 'set.dump');
  const setting = (monotonic, wall) => {
    const words =
        `boot=${clock.boot} host=altair wall=${wall}.000000 monotonic=${monotonic}.000000`;
    return {...line(1000 * monotonic, words), level: 'I', tag: 'trelvo.clock'};
  };
  const signs = '/\\^$.*+?()[]{}|';  // which are themselves where no expression is searched
  const made = [
    line(1000, 'early'), setting(2, 1764000002), line(3000, signs), setting(4, 1764000024),
    line(5000, 'later'), setting(6, 1763990006), line(7000, 'last')
  ];
  writeFileSync(set, buildDump(made, clock));
  run('report', set, '-o', file);
  await browser.open(file);
  // Corrected by 20 s in between, it was not set.
  assert.deepEqual((await rows()).map(({mark}) => mark), ['', 'clock set', '', 'clock set']);
  assert.match(await textOf('#tiles'), /Span\s+26 s/);
  await search([signs]);
  assert.deepEqual([await textOf('#text-error'), await count()], ['', 1]);
  // Time that starts over.
  const boots = [9, 4].map((seconds, i) => {
    const path = join(folder, `${seconds}.dump`);
    writeFileSync(path, buildDump([line(1000 * seconds, `${'a'.repeat(999)}😀!`)]));
    utimesSync(path, 1e9 + 99 * i, 1e9 + 99 * i);
    return path;
  });
  run('report', ...boots, '-o', file);
  await browser.open(file);
  assert.deepEqual((await rows()).map(({time}) => time), ['9.000', '4.000']);
  // A message is cut between characters, and ends where it ends, not there.
  await browser.open(file, '#text=!|😀$&regex=1');
  assert.equal((await rows())[0].message, `${'a'.repeat(999)}😀…`);
  assert.equal(await browser.run(() => document.querySelectorAll('.line mark').length), 0);
  assert.equal(await browser.run(() => document.querySelectorAll('.tile.bad').length), 0);
  run('report', dumps, 'none:F', '-o', file);
  await browser.open(file);
  assert.equal(await textOf('#when'), 'no lines');
  assert.ok(!await isHidden('#nothing'));
});

check('tells hosts and starts apart', async () => {
  // One host misses lines while the other one goes on.
  const dumpsOf = [
    ['near', 0, 0, [4000, 75000]], ['far', 60000, 0, [8000, 8001]], ['far', 60000, 5, [20000]],
    ['far', 90000, 0, [8000]]
  ];
  const files = dumpsOf.map(([host, booted_ms, delta_ms, times], i) => {
    const made = times.map(
        (time_ms, tid) => ({time_ms, level: 'I', tag: 'a', pid: 7, tid: 7 + tid, message: host}));
    const path = join(folder, `host${i}.dump`);
    const boot = String(booted_ms / 30000).repeat(32);
    writeFileSync(path, buildDump(made, {boot, host, booted_ms, delta_ms}));
    return path;
  });
  const file = join(folder, 'hosts.html');
  run('report', '--utc', ...files, '-o', file);
  await browser.open(file);
  assert.equal(await textOf('#title'), '2 hosts');
  assert.match(
      (await textOf('#tiles')).replace(/\s+/g, ' '),
      /Hosts 2 near, far Boots 3 1 reboot Gaps 1 12 s in no dump/);
  assert.equal(await copied('#copy'), run('decode', '--utc', ...files).replace(/^---.*\n/gm, ''));
  await browser.click('#tab-filters');
  assert.match(
      (await textOf('#facets')).replace(/\s+/g, ' '), /Hosts 2 far 4 .*near 2 .*Boots 3 boot /);
  await browser.click('#facet-host li:nth-child(2) .value');
  assert.match(await textOf('#chips'), /^host near/);
  await browser.keys('G');
  assert.match((await textOf('#detail-filters')).replace(/\s+/g, ' '), /host near only hide/);
  assert.equal((await rows()).map(({message}) => message).join(), 'near,near');
  // A gap behind which no line passes before the next boot.
  const hidden = [['x', 1000, 'a', 0], ['y', 9000, 'a', 5], ['x', 1000, 'c', 0]].map(
      ([tag, time_ms, boot, delta_ms], i) => {
        const path = join(folder, `hidden${i}.dump`);
        const made = [{time_ms, level: 'I', tag, pid: 7, tid: 7, message: tag}];
        const settings = {boot: boot.repeat(32), host: 'near', booted_ms: 60000 * i};
        if (i === 1) settings.booted_ms = 0;
        writeFileSync(path, buildDump(made, {...settings, delta_ms}));
        return path;
      });
  run('report', ...hidden, 'x:V', '-o', file);
  await browser.open(file);
  assert.match((await textOf('#tiles')).replace(/\s+/g, ' '), /1 reboot Gaps 1 8\.0 s in no dump/);
});

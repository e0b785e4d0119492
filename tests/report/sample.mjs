// The log of a device that runs out of space, fails and boots again: two boots, three dumps, a gap;
// and one of a day on which it did not.

import {utimesSync, writeFileSync} from 'node:fs';
import {join} from 'node:path';

import {buildDump} from '../formats/dump.mjs';

const HOST = 'altair';
const BOOTED = Date.UTC(2026, 10, 24, 6, 12, 0);
const RETURNED = Date.UTC(2026, 10, 24, 13, 40, 0);
const SPAN_MS = 6 * 3600 * 1000;  // of all lines

// [weight, level, tag, process, message]; the functions draw from r(below).
const USUAL = [
  [30, 'D', 'media.codec', 812, (r) => `frame ${r(90000)} decoded in ${r(90) / 10} ms`],
  [24, 'D', 'sensor', 640, (r) => `gyro x=${r(200) - 100} y=${r(200) - 100} z=${r(200) - 100}`],
  [22, 'I', 'web', 1204, (r) => `GET /items/${r(9000)} 200, ${r(4000)} bytes in ${r(80)} ms`],
  [9, 'I', 'net', 377, (r) => `connected to 10.0.${r(8)}.${r(250)}:443 in ${r(60)} ms`],
  [7, 'D', 'cache', 1204, (r) => `evicted ${r(40)} of 4096 entries`],
  [
    5, 'I', 'store', 951, (r) => `wrote /var/lib/store/${r(65536).toString(16)}.db, ${r(900)} pages`
  ],
  [4, 'I', 'power', 290, (r) => `battery ${20 + r(80)} %, 3.${r(90) + 10} V, ${20 + r(20)} C`],
  [2, 'I', 'kernel', 0, () => 'eth0: link up at 1000 Mbit/s'],
  [1.5, 'W', 'net', 377, (r) => `slow answer from 10.0.${r(8)}.${r(250)}: ${800 + r(900)} ms`],
  [0.8, 'W', 'media.codec', 812, (r) => `frame ${r(90000)} dropped, ${1 + r(5)} late`],
  [0.3, 'W', 'kernel', 0, (r) => `CPU${r(4)}: temperature ${80 + r(12)} C above threshold 80 C`],
  [
    0.1, 'E', 'net', 377,
    (r) => `connection to 10.0.${r(8)}.${r(250)} lost: timed out after 3000 ms`
  ],
];
const BEFORE = [
  [0.5, 'I', 'store', 951, (r) => `freed ${r(900)} pages`],
  [6, 'I', 'power', 290, (r) => `battery ${20 + r(80)} %, 3.${r(90) + 10} V, ${20 + r(20)} C`],
];
const TROUBLE = [
  [
    6, 'E', 'store', 951,
    (r) => `write of /var/lib/store/${r(65536).toString(16)}.db failed: no space left on device`
  ],
  [5, 'W', 'store', 951, (r) => `retry ${1 + r(5)} of 5 in ${r(900)} ms`],
  [4, 'E', 'web', 1204, (r) => `POST /items 507 in ${r(900)} ms: insufficient storage`],
  [1.5, 'W', 'cache', 1204, (r) => `evicted ${r(40)} of 4096 entries`],
  [0.5, 'F', 'store', 951, (r) => `journal ${r(40)} is gone; giving up after 5 attempts`],
];

function drawer(entries) {
  const total = entries.reduce((sum, [weight]) => sum + weight, 0);
  return (share) => {
    let rest = share * total;
    return entries.find(([weight]) => (rest -= weight) < 0) ?? entries[0];
  };
}

// Writes the dumps into a folder; gives their lines.
export function writeSample(folder, count, {healthy = false} = {}) {
  let seed = healthy ? 11 : 7;
  const share = () => (seed = (seed * 48271) % 2147483647) / 2147483647;
  const random = (below) => Math.floor(share() * below);
  const usual = drawer(healthy ? [...USUAL, ...BEFORE] : USUAL);
  const trouble = drawer(TROUBLE);
  const written = [];
  const write = (name, lines, start, settings, share_of_trouble) => {
    let time = start;
    const made = Array.from({length: Math.round(lines * count)}, (_, i, all = lines * count) => {
      const busy = 1.1 + Math.sin(i / all * 23) * Math.cos(i / all * 61);
      time += -Math.log(1 - share()) * (SPAN_MS / count) / busy;
      const draw = share() < share_of_trouble(i / all) ? trouble : usual;
      const [, level, tag, pid, message] = draw(share());
      return {
        time_ms: Math.round(time),
        level,
        tag,
        pid,
        tid: pid + 1 + random(3),
        message: message(random)
      };
    });
    const file = join(folder, name);
    writeFileSync(file, buildDump(made, {host: HOST, ...settings}));
    const end = (settings.booted_ms + Math.round(time)) / 1000;
    utimesSync(file, end, end);
    for (const line of made) written.push({...line, wall_ms: settings.booted_ms + line.time_ms});
    return time;
  };
  const first = {boot: 'a'.repeat(32), booted_ms: BOOTED};
  if (healthy) {
    write('1.dump', 1, 4000, {...first, booted_ms: BOOTED - 86400000}, () => 0);
    return written;
  }
  const end = write('1.dump', 0.4, 4000, first, () => 0);
  write('2.dump', 0.25, end + 900000, {...first, delta_ms: 5}, (at) => at < 0.7 ? 0 : at - 0.7);
  write('3.dump', 0.35, 3000, {boot: 'b'.repeat(32), booted_ms: RETURNED}, () => 0);
  return written;
}

// A dump of 100,000 lines that formats find hard to keep apart from their own marks, and what is
// in it.

import { buildDump, bytesOf } from './dump.mjs';

const BOOT = '0123456789abcdef0123456789abcdef';
const HOST = 'vega';
const BOOTED = 1764028800000; // 2025-11-25T00:00:00Z
const TAGS = [['A', 10], ['=sum', 1], ['a,b', 22], ['q"t', 333], ['two words', 4], ['\\', 55],
    ['日本', 6], ['\xff', 77], ['l\nf', 8], ['', 99],
    ['<img src=x onerror=alert(1)>', 4711]];
const PARTS = ['\0', '\n', '\t', '\r', '"', ',', "'", '\\', '=', ' ', '\x1b', '\x7f', '\x80',
    '\xc3', '\xed\xa0\x80', '\xe2\x80\xae', '\xf0\x9f\x98\x80', 'é', 'word', '{"a":1}', '\r\n',
    'MESSAGE=x', '\n\n', '%s', '</script>', '2025-11-25',
    '<script>alert(1)</script>', '<!--', '&lt;b>', '<b onclick=alert(1)>', '\u2066', '\u2028', '{{data}}'];

// The image, and each of its lines: {time_ms, wall_ms, level, tag, pid, tid, message}, the last and
// the tag as bytes.
export function hostileDump(count) {
    let seed = 1;
    const random = (below) => {
        seed = (seed * 48271) % 2147483647;
        return seed % below;
    };
    const lines = [];
    let time = 1000;
    for (let i = 0; i < count; ++i) {
        const delta = random(40) === 0 ? random(5000) : random(3);
        const parts = random(8);
        let message = Buffer.concat(Array.from({ length: parts },
            () => bytesOf(PARTS[random(PARTS.length)])));
        if (i % 10000 === 5000) {
            message = Buffer.concat([message, Buffer.alloc(60000, 'long ')]);
        }
        const source = random(TAGS.length);
        const level = random(5);
        time += delta;
        lines.push({ time_ms: time, wall_ms: BOOTED + time, level: 'DIWEF'[level],
            tag: bytesOf(TAGS[source][0]), pid: TAGS[source][1], tid: 1000 + source, message });
    }
    const image = buildDump(lines, { boot: BOOT, host: HOST, booted_ms: BOOTED });
    return { image, lines, boot: BOOT, host: HOST };
}

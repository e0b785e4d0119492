// A dump of 100,000 lines that formats find hard to keep apart from their own marks, and what is
// in it.

const BOOT = '0123456789abcdef0123456789abcdef';
const HOST = 'vega';
const BOOTED = 1764028800000; // 2025-11-25T00:00:00Z
const TAGS = [['A', 10], ['=sum', 1], ['a,b', 22], ['q"t', 333], ['two words', 4], ['\\', 55],
    ['日本', 6], ['\xff', 77], ['l\nf', 8], ['', 99]];
const PARTS = ['\0', '\n', '\t', '\r', '"', ',', "'", '\\', '=', ' ', '\x1b', '\x7f', '\x80',
    '\xc3', '\xed\xa0\x80', '\xe2\x80\xae', '\xf0\x9f\x98\x80', 'é', 'word', '{"a":1}', '\r\n',
    'MESSAGE=x', '\n\n', '%s', '</script>', '2025-11-25'];

const bytes = (text) =>
    [...text].every((c) => c.charCodeAt(0) < 256) ? Buffer.from(text, 'latin1') : Buffer.from(text);

function leb(value) {
    const out = [];
    for (; value >= 64; value >>= 7) {
        out.push((value & 0x7f) | 0x80);
    }
    return Buffer.from([...out, value]);
}

const field = (content) => Buffer.concat([leb(content.length), content]);

// The image, and each of its lines: {time_ms, wall_ms, level, tag, pid, tid, message}, the last and
// the tag as bytes.
export function hostileDump(count) {
    let seed = 1;
    const random = (below) => {
        seed = (seed * 48271) % 2147483647;
        return seed % below;
    };
    const records = [];
    const lines = [];
    const record = (delta, level, source, message) =>
        records.push(leb(delta), Buffer.from([(level << 5) | (source + 1)]),
            field(message));
    record(0, 1, TAGS.length, Buffer.from(`boot=${BOOT} host=${HOST} ` +
        `wall=${BOOTED / 1000 + 1}.000000 monotonic=1.000000`));
    let time = 1000;
    for (let i = 0; i < count; ++i) {
        const delta = random(40) === 0 ? random(5000) : random(3);
        const parts = random(8);
        let message = Buffer.concat(Array.from({ length: parts },
            () => bytes(PARTS[random(PARTS.length)])));
        if (i % 10000 === 5000) {
            message = Buffer.concat([message, Buffer.alloc(60000, 'long ')]);
        }
        const source = random(TAGS.length);
        const level = random(5);
        time += delta;
        record(delta, level, source, message);
        lines.push({ time_ms: time, wall_ms: BOOTED + time, level: 'DIWEF'[level],
            tag: bytes(TAGS[source][0]), pid: TAGS[source][1], tid: 1000 + source, message });
    }
    const entries = [...TAGS, ['trelvo.clock', 1]].map(([tag, pid], index) =>
        Buffer.concat([field(Buffer.concat([bytes(tag), Buffer.from(`,${pid}`)])),
            field(Buffer.concat([leb(1000 + index), leb(index + 1)]))]));
    const image = Buffer.concat([leb(0), field(Buffer.concat(entries)), leb(time), ...records]);
    return { image, lines, boot: BOOT, host: HOST };
}

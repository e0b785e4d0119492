// Writes dumps (docs/dump-format.md).

const LEVELS = 'DIWEF';

export const bytesOf = (text) =>
    [...text].every((c) => c.charCodeAt(0) < 256) ? Buffer.from(text, 'latin1') : Buffer.from(text);

function leb(value) {
    const out = [];
    for (; value >= 64; value >>= 7) {
        out.push((value & 0x7f) | 0x80);
    }
    return Buffer.from([...out, value]);
}

const field = (content) => Buffer.concat([leb(content.length), content]);

function header(level, index) {
    const groups = [];
    for (; index >= 16; index = Math.floor(index / 128)) {
        groups.unshift(index % 128);
    }
    const bytes = [(LEVELS.indexOf(level) << 5) | index, ...groups];
    return Buffer.from(bytes.map(
        (byte, i) => i + 1 === bytes.length ? byte : byte | (i === 0 ? 0x10 : 0x80)));
}

// The image of a dump of lines {time_ms, level, tag, pid, tid, message}, tag and message as bytes or
// as UTF-8 text. A clock line comes first where the boot is given, `delta_ms` after a line that is in
// no dump.
export function buildDump(lines, { boot, host, booted_ms, delta_ms = 0 } = {}) {
    const sources = new Map();
    const records = [];
    let time = lines[0].time_ms;
    const record = ({ time_ms, level, tag, pid, tid, message }, delta) => {
        const key = `${tag.toString('latin1')},${pid},${tid},${typeof tag}`;
        if (!sources.has(key)) {
            sources.set(key, { tag, pid, tid, index: sources.size + 1 });
        }
        records.push(leb(delta), header(level, sources.get(key).index), field(Buffer.from(message)));
        time = time_ms;
    };
    const seconds = (ms) => `${Math.floor(ms / 1000)}.${String(ms % 1000).padStart(3, '0')}000`;
    if (boot) {
        const message = `boot=${boot} host=${host} wall=${seconds(booted_ms + time)} ` +
            `monotonic=${seconds(time)}`;
        record({ time_ms: time, level: 'I', tag: 'trelvo.clock', pid: 1, tid: 1, message }, delta_ms);
    }
    for (const line of lines) {
        record(line, line.time_ms - time);
    }
    const entries = new Map();  // pairs of thread and index, by the key's bytes
    for (const { tag, pid, tid, index } of sources.values()) {
        const key = Buffer.concat([Buffer.from(tag), Buffer.from(`,${pid}`)]).toString('latin1');
        entries.set(key, [...entries.get(key) ?? [], leb(tid), leb(index)]);
    }
    const dictionary = [...entries].flatMap(
        ([key, pairs]) => [field(Buffer.from(key, 'latin1')), field(Buffer.concat(pairs))]);
    return Buffer.concat([leb(0), field(Buffer.concat(dictionary)), leb(time), ...records]);
}

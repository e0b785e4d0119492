// Whether the tools that people have read what `trelvoctl decode` gives them, field by field.
//
//   node check.mjs TRELVOCTL FOLDER DOCUMENTATION
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import { hostileDump } from './hostile.mjs';

const [trelvoctl, folder, documentation] = process.argv.slice(2);
const doc = readFileSync(documentation, 'utf8');
process.chdir(folder);
const { image, lines, boot, host } = hostileDump(100000);
writeFileSync('hostile.dump', image);

const run = (program, ...args) =>
    execFileSync(program, args, { maxBuffer: 1 << 30, stdio: ['ignore', 'pipe', 'inherit'] });
const decode = (...args) => run(trelvoctl, 'decode', '--utc', ...args);

// The entries of the Journal Export Format, each {name: bytes}.
function readExport(data) {
    const entries = [];
    let entry = {};
    for (let at = 0; at < data.length;) {
        const end = data.indexOf(10, at);
        if (end === at) {
            entries.push(entry);
            entry = {};
            at = end + 1;
            continue;
        }
        const row = data.subarray(at, end);
        const equals = row.indexOf('=');
        if (equals >= 0) {
            entry[row.subarray(0, equals)] = row.subarray(equals + 1);
            at = end + 1;
        } else {
            const size = Number(data.readBigUInt64LE(end + 1));
            entry[row] = data.subarray(end + 9, end + 9 + size);
            at = end + 10 + size;
        }
    }
    return entries;
}

const PRIORITIES = { F: 2, E: 3, W: 4, I: 6, D: 7 };

function checkJournal() {
    writeFileSync('log.export', decode('-o', 'export', 'hostile.dump'));
    run('/lib/systemd/systemd-journal-remote', '-o', 'log.journal', 'log.export');
    const journal = (...args) => readExport(run('journalctl', '--file', 'log.journal', '-o',
        'export', '--no-pager', '--all', ...args));
    const compare = (entries, wanted) => {
        assert.equal(entries.length, wanted.length);
        entries.forEach((entry, i) => {
            const line = wanted[i];
            const fields = {
                __REALTIME_TIMESTAMP: `${line.wall_ms}000`,
                __MONOTONIC_TIMESTAMP: `${line.time_ms}000`,
                _BOOT_ID: boot,
                _HOSTNAME: host,
                PRIORITY: String(PRIORITIES[line.level]),
                SYSLOG_IDENTIFIER: line.tag,
                _PID: String(line.pid),
                TID: String(line.tid),
                MESSAGE: line.message,
            };
            for (const [name, value] of Object.entries(fields)) {
                assert.ok(entry[name]?.equals(Buffer.from(value)), `entry ${i}: ${name}`);
            }
        });
        return entries.length;
    };
    const all = compare(journal(), lines);
    const noon = lines[50000].wall_ms;
    const since = `${new Date(noon - noon % 1000).toISOString().slice(0, 19).replace('T', ' ')} UTC`;
    compare(journal('-b', boot), lines);
    compare(journal('-b'), lines);
    compare(journal('-p', 'warning'), lines.filter((line) => 'WEF'.includes(line.level)));
    compare(journal('-t', 'a,b'), lines.filter((line) => line.tag.equals(Buffer.from('a,b'))));
    compare(journal('--since', since), lines.filter((line) => line.wall_ms >= noon - noon % 1000));
    return `${all} entries`;
}

const text = (bytes) => new TextDecoder('utf-8', { ignoreBOM: true }).decode(bytes);
// What a row of JSON Lines or CSV must say; its values are texts.
function compareRows(rows, prefix) {
    assert.equal(rows.length, lines.length);
    const shown = (value) => (prefix && /^[=+\-@\t\r]/.test(value) ? `'${value}` : value);
    rows.forEach((row, i) => {
        const line = lines[i];
        const at = `row ${i}`;
        assert.equal(Number(row.time_ms), line.time_ms, at);
        assert.equal(Date.parse(row.time), line.wall_ms, at);
        assert.equal(row.level, line.level, at);
        assert.equal(row.tag, shown(text(line.tag)), at);
        assert.equal(Number(row.pid), line.pid, at);
        assert.equal(Number(row.tid), line.tid, at);
        assert.equal(row.file, 'hostile.dump', at);
        assert.equal(String(row.coded), 'false', at);
        const exact = !line.message.includes(0) && Buffer.from(text(line.message)).equals(line.message);
        assert.equal(row.bytes || '', exact ? '' : line.message.toString('hex').toUpperCase(), at);
        if (exact) {
            assert.equal(row.message, shown(text(line.message)), at);
        }
    });
    return `${rows.length} rows`;
}

const COLUMNS = ['time_ms', 'time', 'level', 'tag', 'pid', 'tid', 'message', 'coded', 'file', 'bytes'];

function checkSqlite() {
    writeFileSync('log.jsonl', decode('-o', 'json', 'hostile.dump'));
    writeFileSync('log.csv', decode('-o', 'csv', 'hostile.dump'));
    const query = (sql, ...before) => JSON.parse(run('sqlite3', ...before.flatMap((each) =>
        ['-cmd', each]), '-json', ':memory:', sql));
    const values = COLUMNS.map((name) => `value->>'${name}' as ${name}`).join();
    const json = query(`select ${values} from json_each('[' || replace(trim(readfile('log.jsonl'),
        char(10)), char(10), ',') || ']')`).map((row) => ({ ...row, coded: row.coded === 1 }));
    return [compareRows(json, false),
        compareRows(query('select * from log', '.import --csv log.csv log'), true)];
}

const duckdb = await import('@duckdb/node-api');
const connection = await (await duckdb.DuckDBInstance.create()).connect();
const rowsOf = async (sql) => (await connection.runAndReadAll(sql)).getRowObjects();

// A command that the documentation gives.
const documented = (pattern) => pattern.exec(doc)[0];

async function checkDuckdb() {
    const names = COLUMNS.map((name) => `${name}: 'VARCHAR'`).join();
    await connection.run(documented(/^create table log as from [^]*?;$/m));
    return [compareRows(await rowsOf(`from read_json('log.jsonl', format = 'newline_delimited',
        columns = {${names}})`), false), compareRows(await rowsOf('from log'), true)];
}

async function checkParquet() {
    await connection.run(documented(/^copy \([^]*?parquet\);$/m));
    const { asyncBufferFromFile, parquetReadObjects } = await import('hyparquet');
    const file = await asyncBufferFromFile('log.parquet');
    return compareRows((await parquetReadObjects({ file })).map((row) => ({ ...row,
        time: row.time instanceof Date ? row.time.toISOString() : row.time })), false);
}

console.log('systemd-journal-remote, journalctl:', checkJournal());
console.log('SQLite, JSON Lines and CSV:', checkSqlite().join(', '));
console.log('DuckDB, JSON Lines and CSV:', (await checkDuckdb()).join(', '));
console.log('DuckDB to Parquet, hyparquet:', await checkParquet());

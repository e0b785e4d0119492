// The ClickHouse command line as far as docs/fleet.md uses it, by the package chdb for Node.js:
//
//   clickhouse local --path FOLDER (--query SQL | --queries-file FILE)
//
// The data of "insert ... format F" come from descriptor 4, since the engine looks at standard input
// itself.
import { createReadStream, readFileSync } from 'node:fs';
import { Session } from 'chdb';

const words = process.argv.slice(3);
const options = {};
while (words.length > 0) {
    options[words.shift()] = words.shift();
}
const session = new Session(options['--path']);
const sql = options['--query'] ?? readFileSync(options['--queries-file'], 'utf8');
if (/^\s*insert/i.test(sql)) {
    // Whole lines, many at a time.
    let rest = '';
    const insert = (data) => data && session.query(`${sql}\n${data}`);
    for await (const chunk of createReadStream('', { fd: 4, encoding: 'utf8', highWaterMark: 1 << 20 })) {
        rest += chunk;
        if (rest.length > 32 << 20) {
            const end = rest.lastIndexOf('\n') + 1;
            insert(rest.slice(0, end));
            rest = rest.slice(end);
        }
    }
    insert(rest);
} else {
    for (const statement of sql.split(/;\s*$/m).filter((each) => each.trim() !== '')) {
        process.stdout.write(session.query(statement, 'TSV') || '');
    }
}
session.close();

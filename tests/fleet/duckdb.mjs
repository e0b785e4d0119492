// The DuckDB command line as far as docs/fleet.md uses it, by the package for Node.js:
//
//   duckdb [-option VALUE]... DATABASE [-c SQL]     without -c the SQL comes from standard input
import { readFileSync } from 'node:fs';
import { DuckDBInstance } from '@duckdb/node-api';

const words = process.argv.slice(2);
let sql;
let database;
while (words.length > 0) {
    const word = words.shift();
    if (word === '-c') {
        sql = words.shift();
    } else if (word === '-separator') {
        words.shift(); // a TAB, as always here
    } else if (!word.startsWith('-')) {
        database = word;
    }
}
const connection = await (await DuckDBInstance.create(database)).connect();
const statements = await connection.extractStatements(sql ?? readFileSync(0, 'utf8'));
for (let i = 0; i < statements.count; ++i) {
    const reader = await (await statements.prepare(i)).runAndReadAll();
    // Statements that are not queries say how many rows they changed.
    if (reader.columnNames().join() !== 'Count' && reader.currentRowCount > 0) {
        process.stdout.write(reader.getRows().map((row) => `${row.join('\t')}\n`).join(''));
    }
}

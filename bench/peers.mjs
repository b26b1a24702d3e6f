// Sorts a CSV file by another engine: ENGINE NODE_MODULES THREADS INPUT OUTPUT ORDER.

import {createRequire} from 'node:module';

const [, , engine, modules, threads, input, output, order] = process.argv;
const load = createRequire(`${modules}/any.js`);

async function byDuckDb() {
    const {DuckDBInstance} = load('@duckdb/node-api');
    const database = await DuckDBInstance.create(':memory:');
    const connection = await database.connect();
    await connection.run(`SET threads=${threads}`);
    await connection.run(`COPY (SELECT * FROM read_csv('${input}') ORDER BY ${order})
                          TO '${output}' (HEADER)`);
}

// Its threads are told by the environment.
function byPolars() {
    const polars = load('nodejs-polars');
    const keys = order.split(', ').map((key) => key.split(' '));
    polars.readCSV(input)
        .sort(keys.map(([name]) => name), keys.map(([, direction]) => direction === 'DESC'))
        .writeCSV(output);
}

await (engine === 'duckdb' ? byDuckDb() : byPolars());

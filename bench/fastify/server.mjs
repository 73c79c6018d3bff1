// node server.mjs DATABASE PORT: the queries of bench/queries behind Fastify and better-sqlite3, with
// prepared statements and serialisers made from schemas.
import { Readable } from "node:stream";
import Database from "better-sqlite3";
import fastJson from "fast-json-stringify";
import fastify from "fastify";

const [file, port] = process.argv.slice(2);
const database = new Database(file, { readonly: true, fileMustExist: true });

const row = {
    type: "object",
    properties: {
        id: { type: "integer" },
        title: { type: "string" },
        kind: { type: "integer" },
        price: { type: "number" },
        created: { type: "string" },
    },
};
const stringifyRow = fastJson(row);
const response = { 200: { type: "array", items: row } };
const columns = "SELECT id, title, kind, price, created FROM";

function numberInQuery(name) {
    return { type: "object", required: [name], properties: { [name]: { type: "integer" } } };
}

// A statement that is being read cannot be started again: requests at once need one each.
class StatementPool {
    #sql;
    #free = [];

    constructor(sql) {
        this.#sql = sql;
    }

    // The JSON text of all rows in pieces of about 16 KiB, made as they are asked for.
    *text() {
        const statement = this.#free.pop() ?? database.prepare(this.#sql);
        try {
            let piece = "[";
            let separator = "";
            for (const each of statement.iterate()) {
                piece += separator + stringifyRow(each);
                separator = ",";
                if (piece.length >= 16384) {
                    yield piece;
                    piece = "";
                }
            }
            yield piece + "]";
        } finally {
            this.#free.push(statement);
        }
    }
}

const app = fastify();

const byId = database.prepare(`${columns} item WHERE id = ?`);
app.get("/row", { schema: { querystring: numberInQuery("id"), response } }, (request, reply) => {
    reply.send(byId.all(request.query.id));
});

const ofKind = database.prepare(`${columns} item WHERE kind = ? ORDER BY created LIMIT 100`);
app.get("/page", { schema: { querystring: numberInQuery("kind"), response } }, (request, reply) => {
    reply.send(ofKind.all(request.query.kind));
});

for (const [path, sql] of [
    ["/stream", `${columns} item ORDER BY id LIMIT 10000`],
    ["/export", `${columns} history ORDER BY id`],
]) {
    const pool = new StatementPool(sql);
    app.get(path, (request, reply) => {
        reply
            .type("application/json; charset=utf-8")
            .send(Readable.from(pool.text(), { objectMode: false, highWaterMark: 65536 }));
    });
}

await app.listen({ host: "127.0.0.1", port: Number(port) });

// node same-json.mjs FILE OTHER ROWS: fails unless both files hold the same JSON, an array of so many
// objects; the order of an object's members does not count.
import { readFileSync } from "node:fs";
import { isDeepStrictEqual } from "node:util";

const [first, second, rows] = process.argv.slice(2);
const [one, other] = [first, second].map((name) => JSON.parse(readFileSync(name, "utf8")));
if (!Array.isArray(one) || one.length !== Number(rows)) throw new Error(`${first} has not ${rows} rows`);
if (!isDeepStrictEqual(one, other)) {
    const index = one.findIndex((each, at) => !isDeepStrictEqual(each, other[at]));
    throw new Error(`they differ: ${JSON.stringify(one[index])} and ${JSON.stringify(other[index])}`);
}

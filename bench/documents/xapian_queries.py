"""xapian_queries.py DATABASE QUERIES SECONDS FIRST: Xapian without server and process: a loop in one process.

Runs the file's queries, from the FIRST one on, for so many seconds, each for its ten best with a snippet of the text
that omindex keeps. Prints queries, median and 99th percentile in milliseconds."""
import sys
import time

import xapian

database = xapian.Database(sys.argv[1])
stemmer = xapian.Stem("en")
parser = xapian.QueryParser()
parser.set_database(database)
parser.set_stemmer(stemmer)
parser.set_stemming_strategy(xapian.QueryParser.STEM_SOME)
parser.set_default_op(xapian.Query.OP_AND)
FLAGS = xapian.QueryParser.FLAG_DEFAULT | xapian.QueryParser.FLAG_WILDCARD


def find(text):
    enquire = xapian.Enquire(database)
    enquire.set_query(parser.parse_query(text, FLAGS))
    found = enquire.get_mset(0, 10)
    rows = []
    for match in found:
        fields = dict(line.split("=", 1) for line in match.document.get_data().decode().split("\n") if "=" in line)
        rows.append((fields["url"], match.percent, found.snippet(fields["sample"], 200, stemmer).decode()))
    return rows


with open(sys.argv[2], encoding="utf-8") as file:
    queries = [line.rstrip("\n") for line in file]
end = time.monotonic() + float(sys.argv[3])
at, times = int(sys.argv[4]), []
while (begin := time.monotonic()) < end:
    if not find(queries[at % len(queries)]):
        sys.exit(f"{queries[at % len(queries)]} finds nothing")
    times.append(time.monotonic() - begin)
    at += 1
times.sort()
print(len(times), *(f"{times[len(times) * part // 100] * 1000:.3f}" for part in (50, 99)))

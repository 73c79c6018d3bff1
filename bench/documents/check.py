"""check.py PORT QUERIES: asks for the first hundred queries of the file; each must be answered 200 and with rows that
have summaries. Prints how many rows the answers had in all."""
import http.client
import json
import sys
import urllib.parse

connection = http.client.HTTPConnection("127.0.0.1", int(sys.argv[1]), timeout=60)
with open(sys.argv[2], encoding="utf-8") as file:
    queries = [line.rstrip("\n") for line in file][:100]
total = 0
for query in queries:
    connection.request("GET", "/find?q=" + urllib.parse.quote(query), headers={"Accept": "application/json"})
    answer = connection.getresponse()
    body = answer.read()
    if answer.status != 200:
        sys.exit(f"{query} is answered {answer.status}")
    rows = json.loads(body)
    if not 1 <= len(rows) <= 10:
        sys.exit(f"{query} finds {len(rows)} documents")
    for row in rows:
        if not row["System.ItemUrl"].endswith(".txt") or "\u2068" not in row["System.Search.AutoSummary"]:
            sys.exit(f"{query}: {row}")
    total += len(rows)
print(total)

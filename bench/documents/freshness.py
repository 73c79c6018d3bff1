"""freshness.py PORT CORPUS CHANGES: how long after a file was saved, renamed or deleted a search finds it so.

Saves CHANGES files in folders of the corpus taken at random, renames each and deletes it, one change after the other
at uneven intervals, and asks every two milliseconds over one connection. Prints a line for each kind of change: its
name, median, 99th percentile and maximum in milliseconds. A change that is not found in ten seconds fails.
"""
import http.client
import json
import os
import random
import sys
import time
import urllib.parse

LONGEST = 10
INTERVAL = 0.002


class Searcher:
    def __init__(self, port):
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=60)

    def names(self, query):
        """The names of the documents that are found."""
        self.connection.request("GET", "/find?q=" + urllib.parse.quote(query), headers={"Accept": "application/json"})
        answer = self.connection.getresponse()
        body = answer.read()
        if answer.status != 200:
            sys.exit(f"{query} is answered {answer.status}")
        return [os.path.basename(row["System.ItemUrl"]) for row in json.loads(body)]

    def time_until(self, query, names, begin):
        while self.names(query) != names:
            if time.monotonic() - begin > LONGEST:
                sys.exit(f"{query} still does not find {names}")
            time.sleep(INTERVAL)
        return (time.monotonic() - begin) * 1000


def save(path, word, chance):
    with open(path, "w", encoding="utf-8") as file:
        file.write(" ".join([word] + ["fill" + str(chance.randrange(1000)) for _ in range(200)]))


def measure(searcher, corpus, changes, chance):
    folders = sorted(os.listdir(corpus))
    times = {"save": [], "rename": [], "delete": []}
    for number in range(changes):
        word = f"neverwritten{number}"
        first, second = (f"{corpus}/{chance.choice(folders)}/fresh-{number}-{turn}.txt" for turn in (1, 2))
        for change, act, names in (
            ("save", lambda: save(first, word, chance), [os.path.basename(first)]),
            ("rename", lambda: os.rename(first, second), [os.path.basename(second)]),
            ("delete", lambda: os.unlink(second), []),
        ):
            time.sleep(chance.random() * 0.1)
            begin = time.monotonic()
            act()
            times[change].append(searcher.time_until(word, names, begin))
    return times


def main():
    port, corpus, changes = int(sys.argv[1]), sys.argv[2], int(sys.argv[3])
    chance = random.Random(2)
    for change, times in measure(Searcher(port), corpus, changes, chance).items():
        times.sort()
        print(change, *(f"{times[at]:.1f}" for at in (len(times) // 2, len(times) * 99 // 100, -1)))


main()

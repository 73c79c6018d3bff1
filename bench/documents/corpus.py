"""corpus.py FOLDER DOCUMENTS: text documents to search, and queries that fit them; alike in every run.

FOLDER/corpus has DOCUMENTS plain text files in folders of 100. Their words come from a vocabulary of 50,000 made-up
ones, in a Zipf distribution with exponent 1; their lengths in words are log-normal with a median of 300.
FOLDER/queries has a file of queries for each kind, one a line: words of the documents, phrases in quotation marks,
beginnings with a "*". FOLDER/facts.json tells what has been made; it is written last.
"""
import itertools
import json
import math
import os
import random
import sys
from collections import Counter

VOCABULARY = 50_000
MEDIAN_LENGTH = 300
LENGTH_SPREAD = 0.8
FOLDER_SIZE = 100
QUERIES = 1000

ONSETS = ("b c d f g h j k l m n p r s t v w z br ch cl cr dr fl gl gr pl pr qu sc sh sl sp st tr th").split()
VOWELS = "a e i o u a e i o ai ea ie oo ou".split()
CODAS = ["", "", "", "", "l", "m", "n", "r", "s", "t", "nd", "nt", "st", "ck", "x"]


def make_vocabulary(chance):
    """Distinct words, the frequent ones shorter, as in languages."""
    words, seen = [], set()
    while len(words) < VOCABULARY:
        syllables = 1 if len(words) < 300 else chance.choice((1, 2, 2, 2, 2, 3, 3))
        word = "".join(chance.choice(ONSETS) + chance.choice(VOWELS) + chance.choice(CODAS) for _ in range(syllables))
        if word not in seen:
            seen.add(word)
            words.append(word)
    return words


def sentences(words, chance):
    """The text: sentences of some words, paragraphs of some sentences."""
    at, parts = 0, []
    while at < len(words):
        end = at + chance.randint(5, 20)
        parts.append(" ".join(words[at:end]).capitalize() + chance.choice((". ", ". ", ". ", ".\n", ".\n\n")))
        at = end
    return "".join(parts)


def make_documents(folder, count, words, chance):
    """Writes the files; returns bytes, words in all and in how many documents each word is, and some documents."""
    weights = list(itertools.accumulate(1 / rank for rank in range(1, VOCABULARY + 1)))
    numbers = range(VOCABULARY)
    frequencies, samples = Counter(), []
    size = total = 0
    wanted = set(chance.sample(range(count), min(count, QUERIES)))
    for number in range(count):
        if number % FOLDER_SIZE == 0:
            place = f"{folder}/{number // FOLDER_SIZE:04}"
            os.makedirs(place, exist_ok=True)
        length = max(5, round(math.exp(chance.gauss(math.log(MEDIAN_LENGTH), LENGTH_SPREAD))))
        drawn = chance.choices(numbers, cum_weights=weights, k=length)
        frequencies.update(set(drawn))
        text = [words[word] for word in drawn]
        if number in wanted:
            samples.append(text)
        content = sentences(text, chance).encode()
        with open(f"{place}/d{number:06}.txt", "wb") as file:
            file.write(content)
        size += len(content)
        total += length
    chance.shuffle(samples)
    return size, total, frequencies, samples


def make_queries(words, count, frequencies, samples, chance):
    def between(least, most):
        found = [words[word] for word, documents in frequencies.items() if least <= documents / count <= most]
        found.sort()
        return [chance.choice(found) for _ in range(QUERIES)]

    def from_documents(query):
        made = []
        while len(made) < QUERIES:
            text = samples[len(made) % len(samples)]
            if (found := query(text)) is not None:
                made.append(found)
        return made

    def two(text):
        first, second = chance.choice(text), chance.choice(text)
        return f"{first} {second}" if first != second else None

    def phrase(text):
        at = chance.randrange(len(text) - 1)
        return f'"{text[at]} {text[at + 1]}"'

    def prefix(text):
        word = chance.choice(text)
        return f"{word[:3]}*" if len(word) > 3 else None

    kinds = {"rare": between(0, 0.0015), "medium": between(0.008, 0.012), "common": between(0.1, 1),
             "two": from_documents(two), "phrase": from_documents(phrase), "prefix": from_documents(prefix)}
    kinds["mixed"] = [query for queries in kinds.values() for query in queries]
    chance.shuffle(kinds["mixed"])
    return kinds


def main():
    folder, count = sys.argv[1], int(sys.argv[2])
    chance = random.Random(1)
    words = make_vocabulary(chance)
    size, total, frequencies, samples = make_documents(f"{folder}/corpus", count, words, chance)
    os.makedirs(f"{folder}/queries", exist_ok=True)
    for kind, queries in make_queries(words, count, frequencies, samples, chance).items():
        with open(f"{folder}/queries/{kind}", "w", encoding="utf-8") as file:
            file.writelines(f"{query}\n" for query in queries)
    with open(f"{folder}/facts.json", "w", encoding="utf-8") as file:
        json.dump({"documents": count, "bytes": size, "words": total,
                   "distinct": len(frequencies),
                   "most": max(frequencies.values()) / count}, file)


main()

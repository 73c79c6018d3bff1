-- The sample database of the demo: six thousand holdings of the archive, the same on every machine. Read by
-- make-demo-archive, whose function file(NAME) gives the content of a file beside this one.

PRAGMA journal_mode = WAL;
BEGIN;

CREATE TABLE pictures (id INTEGER PRIMARY KEY, name TEXT NOT NULL, image BLOB NOT NULL);

CREATE TABLE items (
    id INTEGER PRIMARY KEY,
    date TEXT NOT NULL,
    kind TEXT NOT NULL,
    title TEXT NOT NULL,
    person TEXT NOT NULL,
    place TEXT NOT NULL,
    pages INTEGER NOT NULL,
    millimetres REAL NOT NULL,
    digitised BOOLEAN NOT NULL,
    shelf TEXT NOT NULL,
    picture INTEGER REFERENCES pictures,
    document TEXT                           -- its path below /docs/
);

CREATE TABLE guests (id INTEGER PRIMARY KEY, time TEXT NOT NULL, name TEXT NOT NULL, entry TEXT NOT NULL);

INSERT INTO pictures (id, name, image)
SELECT key + 1, value, file('pictures/' || value || '.png')
FROM json_each('["lighthouse", "night", "storm", "harbour", "ferry", "bell", "petrels", "observatory", "school"]');

-- What titles are made of. A number picks from a list by its remainder; factors without a common divisor keep the
-- lists out of step.
CREATE TEMP TABLE words (list TEXT, number INTEGER, word TEXT, PRIMARY KEY (list, number));
INSERT INTO words
SELECT lists.key, words.key, words.value
FROM json_each('{
    "month": ["January", "February", "March", "April", "May", "June", "July", "August", "September", "October",
              "November", "December"],
    "keeper": ["Aldous Penhallow", "Morwenna Penhallow", "J. Tregear", "Sam Hocking", "Inés Carballo"],
    "writer": ["Elin Strand", "Duarte Valadares", "Rosalia Ferrante", "Tomáš Hrubín", "Sietske Hoekstra",
               "Ines Tregear", "Marie Le Goff", "Παύλος Καλλέργης"],
    "town": ["Bergen", "Porto", "Palermo", "Brno", "Harlingen", "Whitby", "Saint-Malo", "Πειραιάς"],
    "corner": ["lantern", "harbour", "tide well", "schoolroom", "seed store", "boathouse", "the Teeth"],
    "wind": ["N", "NE", "E", "SE", "S", "SW", "W", "NW"],
    "event": ["clear nights", "fog, the bell rung", "petrels at the lantern", "a sail sighted", "lens cleaned",
              "lamp trimmed", "no boat", "snow on the gallery", "spray over the lantern", "the mail landed",
              "wicks changed"],
    "matter": ["the tide gauge", "oil for the lamp", "seeds sent by packet", "the loss of the \"Halcyon\"",
               "a debt of 5 < 6 shillings", "maps & charts", "the petrels", "a grandson''s schooling",
               "the price of paraffin", "thanks"],
    "plant": ["sea kale", "barley, four-rowed", "white campion", "Merrow bean", "scurvy-grass", "small oats",
              "thrift", "rock samphire"]
}') AS lists, json_each(lists.value) AS words;

-- A page of the logbook for every week that the light was kept.
WITH RECURSIVE weeks (n, day) AS (
    SELECT 0, '1871-10-02' UNION ALL SELECT n + 1, date(day, '+7 days') FROM weeks WHERE day < '1968-09-23')
INSERT INTO items (date, kind, title, person, place, pages, millimetres, digitised, shelf)
SELECT day, 'logbook',
       format('Week of %d %s: wind %s %d, %s', substr(day, 9), month.word, wind.word, n * 31 % 11, event.word),
       keeper.word, 'lantern', 1, 0.1, n % 3 > 0, format('L %d/%d', n / 100 + 1, n % 100 + 1)
FROM weeks
JOIN words AS month ON month.list = 'month' AND month.number = substr(day, 6, 2) - 1
JOIN words AS wind ON wind.list = 'wind' AND wind.number = n * 7919 / 13 % 8
JOIN words AS event ON event.list = 'event' AND event.number = n * 104729 / 7 % 11
JOIN words AS keeper ON keeper.list = 'keeper' AND keeper.number = n / 700 % 5;

WITH RECURSIVE counted (n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM counted WHERE n < 599)
INSERT INTO items (date, kind, title, person, place, pages, millimetres, digitised, shelf)
SELECT date('1872-01-08', format('+%d days', n * 67)), 'letter', 'On ' || matter.word, writer.word, town.word,
       n % 4 + 1, (n % 4 + 1) * 0.12, n % 5 > 0, format('C %d', n + 1)
FROM counted
JOIN words AS matter ON matter.list = 'matter' AND matter.number = n * 37 / 3 % 10
JOIN words AS writer ON writer.list = 'writer' AND writer.number = n * 11 % 8
JOIN words AS town ON town.list = 'town' AND town.number = n * 11 % 8;

WITH RECURSIVE counted (n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM counted WHERE n < 269)
INSERT INTO items (date, kind, title, person, place, pages, millimetres, digitised, shelf, picture)
SELECT date('1889-05-04', format('+%d days', n * 131)), 'photograph',
       format('%s%s, plate %d', upper(substr(name, 1, 1)), substr(name, 2), n / 9 + 1), keeper.word, corner.word, 1,
       1.5, 1, format('P %d', n + 1), pictures.id
FROM counted
JOIN pictures ON pictures.id = n % 9 + 1
JOIN words AS keeper ON keeper.list = 'keeper' AND keeper.number = n / 60 % 5
JOIN words AS corner ON corner.list = 'corner' AND corner.number = n * 5 % 7;

WITH RECURSIVE counted (n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM counted WHERE n < 319)
INSERT INTO items (date, kind, title, person, place, pages, millimetres, digitised, shelf)
SELECT date('1911-09-01', format('+%d days', n * 112)), 'seeds', 'Packet of ' || plant.word, 'Rosalia Ferrante',
       'seed store', 0, 2.25, 0, format('S %d', n + 1)
FROM counted JOIN words AS plant ON plant.list = 'plant' AND plant.number = n * 3 % 8;

-- The documents that lie in the archive's folder.
INSERT INTO items (date, kind, title, person, place, pages, millimetres, digitised, shelf, document)
SELECT value ->> 'date', value ->> 'kind', value ->> 'title', '', 'reading room', 1, 0.5, 1,
       format('D %d', key + 1), value ->> 'path'
FROM json_each(CAST(file('../archive/catalogue.json') AS TEXT));

INSERT INTO guests (time, name, entry) VALUES
    ('1974-03-01 15:40', 'Ines Tregear', 'The ferry being unable to sail, we had time to found an archive.'),
    ('2003-05-17 10:05', 'The twin school', 'From here one sees the whole world pass.');

CREATE INDEX items_date ON items (date);
CREATE INDEX items_kind ON items (kind, date);
COMMIT;

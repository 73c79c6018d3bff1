-- The guest book, the last entry first.
SELECT time, name, entry FROM guests ORDER BY id DESC LIMIT 50;

-- The holdings, by date. Every parameter may be missing: find (in titles), kind, from and until (dates), skip and
-- count (rows). The column total has the number of all that match.
SELECT id, date, kind, title, person, place, pages, millimetres, digitised, shelf, picture, count(*) OVER () AS total
FROM items
WHERE (coalesce(@kind, '') = '' OR kind = @kind)
  AND instr(lower(title), lower(coalesce(@find, ''))) > 0
  AND date >= coalesce(@from, '')
  AND (coalesce(@until, '') = '' OR date <= @until)
ORDER BY date, id
LIMIT min(max(CAST(coalesce(@count, 50) AS INTEGER), 1), 200)
OFFSET max(CAST(coalesce(@skip, 0) AS INTEGER), 0);

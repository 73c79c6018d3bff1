-- One of the holdings, and what the moon was like in the night of its date, by a script.
SELECT script_library('QbLua.so'), script_resource('
    local names = {[0] = "new moon", "waxing crescent", "first quarter", "waxing gibbous", "full moon",
                   "waning gibbous", "last quarter", "waning crescent"}
    local month = 29.530588853
    local newMoon = 2451550.26  -- of 6 January 2000, 18:14

    local function julianDay(year, month, day)
        local shift = (14 - month) // 12
        local y, m = year + 4800 - shift, month + 12 * shift - 3
        return day + (153 * m + 2) // 5 + 365 * y + y // 4 - y // 100 + y // 400 - 32045
    end

    function moon(date)
        local year, m, day = date:match("^(%d+)-(%d+)-(%d+)$")
        if not year then return nil end
        local midnight = julianDay(tonumber(year), tonumber(m), tonumber(day)) + 0.5
        local age = (midnight - newMoon) % month
        return names[math.floor(age / month * 8 + 0.5) % 8]
    end');

SELECT id, date, kind, title, person, place, pages, millimetres, digitised, shelf, picture, document,
       script_action('moon', date) AS moon, @[Registry$Archive Name] AS archive
FROM items
WHERE id = @id;

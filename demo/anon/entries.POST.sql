-- Signs the guest book, and shows it. Form fields come as the browser encoded them. What is written here is shown to
-- others: control characters, which neither JSON nor XML can hold, are left out, and the book is kept short.
SELECT script_library('QbLua.so'), script_resource('
    function clean(text, most)
        local kept = {}
        for _, code in utf8.codes(text or "") do
            local isText = code >= 32 and code < 127 or code >= 160 and code ~= 0xFFFE and code ~= 0xFFFF
            if isText or code == 10 then kept[#kept + 1] = utf8.char(code) end
            if #kept == most then break end
        end
        return (table.concat(kept):gsub("^%s+", ""):gsub("%s+$", ""))
    end');

WITH given AS MATERIALIZED (
    SELECT script_action('clean', http_decode(@name), 80) AS name,
           script_action('clean', http_decode(@entry), 500) AS entry)
INSERT INTO guests (time, name, entry)
SELECT strftime('%Y-%m-%d %H:%M', 'now'), name, entry FROM given WHERE name <> '' AND entry <> '';

DELETE FROM guests WHERE id <= (SELECT max(id) FROM guests) - 200;

SELECT time, name, entry FROM guests ORDER BY id DESC LIMIT 50;

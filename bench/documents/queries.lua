-- wrk -s queries.lua URL -- TARGET QUERIES FIRST: goes through the file's queries from the FIRST one on, each put
-- behind TARGET; ends with the line "result REPLIES MICROSECONDS P50 P99 ERRORS", both percentiles in microseconds.
local requests, at = {}, 0

local function escape(text)
    return (text:gsub("[^%w]", function(character) return string.format("%%%02X", character:byte()) end))
end

function init(arguments)
    wrk.headers["Accept"] = "application/json"
    for query in io.lines(arguments[2]) do
        requests[#requests + 1] = wrk.format("GET", arguments[1] .. escape(query))
    end
    at = tonumber(arguments[3])
end

function request()
    at = at % #requests + 1
    return requests[at]
end

function done(summary, latency)
    local errors = summary.errors
    print(string.format("result %.0f %.0f %.0f %.0f %.0f", summary.requests, summary.duration,
        latency:percentile(50), latency:percentile(99),
        errors.connect + errors.read + errors.write + errors.status + errors.timeout))
end

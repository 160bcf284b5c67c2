-- wrk script: POSTs one SOAP envelope with HTTP basic authentication and counts answers that
-- are not 200 or lack the expected text.
--   WRK_BODY    file holding the request body
--   WRK_AUTH    the Authorization header ("Basic " and base64 of "user:password")
--   WRK_EXPECT  text every answer must contain
local function read_file(path)
  local f = assert(io.open(path, "rb"))
  local text = f:read("*a")
  f:close()
  return text
end

wrk.method = "POST"
wrk.body = read_file(os.getenv("WRK_BODY"))
wrk.headers["Content-Type"] = "text/xml; charset=utf-8"
wrk.headers["Authorization"] = os.getenv("WRK_AUTH")
local expect = os.getenv("WRK_EXPECT")

local threads = {}
function setup(thread) table.insert(threads, thread) end

bad = 0
function response(status, headers, body)
  if status ~= 200 or not body:find(expect, 1, true) then bad = bad + 1 end
end

function done(summary, latency, requests)
  local total = 0
  for _, thread in ipairs(threads) do total = total + thread:get("bad") end
  io.write(string.format("requests=%d seconds=%.2f rps=%.0f bad=%d p50_ms=%.2f p99_ms=%.2f\n",
    summary.requests, summary.duration / 1e6, summary.requests / (summary.duration / 1e6),
    total, latency:percentile(50) / 1000, latency:percentile(99) / 1000))
end

-- PUTs of every user's 20 habits, a user drawn per request.
local here = debug.getinfo(1, "S").source:match("^@(.*/)") or "./"
package.path = here .. "?.lua;" .. package.path
local common = require("common")

local requests = {}

function init(args)
   local dir = common.start(args)
   local bodies = common.lines(dir .. "habits")
   for i, token in ipairs(common.lines(dir .. "tokens")) do
      requests[#requests + 1] = common.put(token, "habits", bodies[i])
   end
end

function request()
   return requests[math.random(#requests)]
end

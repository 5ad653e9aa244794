-- Authorised GETs of every user's habits (20 of them), a user drawn per request.
local here = debug.getinfo(1, "S").source:match("^@(.*/)") or "./"
package.path = here .. "?.lua;" .. package.path
local common = require("common")

local requests = {}

function init(args)
   local dir = common.start(args)
   for _, token in ipairs(common.lines(dir .. "tokens")) do
      requests[#requests + 1] = common.get(token, "habits")
   end
end

function request()
   return requests[math.random(#requests)]
end

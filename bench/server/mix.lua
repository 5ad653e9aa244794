-- What a crowd of apps does: 80 % GETs and 20 % PUTs of habits (20), tasks
-- (5 lists of 30) and the pomodoro state, a user and resource drawn per request.
local here = debug.getinfo(1, "S").source:match("^@(.*/)") or "./"
package.path = here .. "?.lua;" .. package.path
local common = require("common")

local resources = { "habits", "tasks", "pomodoro" }
local gets = {}
local puts = {}

function init(args)
   local dir = common.start(args)
   local tokens = common.lines(dir .. "tokens")
   for _, resource in ipairs(resources) do
      local bodies = common.lines(dir .. resource)
      for i, token in ipairs(tokens) do
         gets[#gets + 1] = common.get(token, resource)
         puts[#puts + 1] = common.put(token, resource, bodies[i])
      end
   end
end

function request()
   if math.random(100) <= 80 then
      return gets[math.random(#gets)]
   end
   return puts[math.random(#puts)]
end

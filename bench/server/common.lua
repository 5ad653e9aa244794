-- Shared by the load scripts. server_bench writes a directory with one token per
-- line ("tokens") and, for each resource, one body per line in the same user
-- order ("habits", "tasks", "pomodoro"); the scripts get it as their argument:
--   wrk ... -s get.lua URL -- DIR
-- Requests are formatted once in init(), so wrk spends its time sending them.
local common = {}

function common.lines(path)
   local out = {}
   for line in io.lines(path) do
      if #line > 0 then
         out[#out + 1] = line
      end
   end
   if #out == 0 then
      error(path .. " is empty")
   end
   return out
end

function common.get(token, resource)
   return wrk.format("GET", "/api/v1/" .. resource, {
      ["Host"] = wrk.host,
      ["Authorization"] = "Bearer " .. token,
   })
end

function common.put(token, resource, body)
   return wrk.format("PUT", "/api/v1/" .. resource, {
      ["Host"] = wrk.host,
      ["Authorization"] = "Bearer " .. token,
      ["Content-Type"] = "application/json",
   }, body)
end

-- The data directory from the script's arguments. Each run draws users in a
-- different order.
function common.start(args)
   local dir = args[1] or error("usage: wrk ... -s SCRIPT URL -- DATA_DIR")
   math.randomseed(os.time() + math.floor(os.clock() * 1e6))
   return dir .. "/"
end

return common

-- Suspends an output that idles, as on a desktop. It takes the place of the script of that name in WirePlumber
-- 0.4, which also asks it of an output that is gone by then, and crashes the session manager.
nodes = ObjectManager { Interest { type = "node", Constraint { "media.class", "matches", "Audio/*" } } }
local timers = {}
local function stop(id)
  if timers[id] then timers[id]:destroy() end
  timers[id] = nil
end
nodes:connect("object-added", function(_, node)
  local id = node["bound-id"]
  node:connect("pw-proxy-destroyed", function() stop(id) end)
  node:connect("state-changed", function(_, _, state)
    stop(id)
    if state ~= "idle" then return end
    timers[id] = Core.timeout_add(5000, function()
      timers[id] = nil
      node:send_command("Suspend")
      return false
    end)
  end)
end)
nodes:activate()

-- Opens the session saved by circuit_create.lua, into which scripts/ardour-test.sh has put a
-- document (Kelm Circuit's state, as a chunk), lists the plug-in's parameters, and exports
-- the session to a 32-bit float wave file. The words @DIR@, @FRAMES@ and @PRESET@ are
-- written in by scripts/ardour-test.sh.
AudioEngine:set_backend ("None (Dummy)", "", ""):set_device_name ("Silence")
load_session ("@DIR@/circuit", "circuit")
local plug = Session:route_by_name ("Circuit"):nth_plugin (1)
assert (not plug:isnil (), "the plug-in is not in the session")
local pi = plug:to_insert ():plugin (0)
print ("plug-in " .. pi:name () .. ", parameters " .. pi:parameter_count ())
for i = 0, pi:parameter_count () - 1 do
	local _, t = pi:get_parameter_descriptor (i, ARDOUR.ParameterDescriptor ())
	local value = ARDOUR.LuaAPI.get_processor_param (plug, i, true)
	print ("parameter " .. i .. " " .. t[2].label .. " " .. value)
end
local ex = Session:simple_export ()
ex:set_range (0, @FRAMES@)
ex:set_folder ("@DIR@")
ex:set_name ("circuit-out")
assert (ex:set_preset ("@PRESET@"), "the export preset was not found")
print ("export " .. tostring (ex:run_export ()))
close_session ()

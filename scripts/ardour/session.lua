-- Headless Ardour session: a stereo track with the file player and the Kelm plug-in, the
-- plug-in's parameters listed and set, and the session exported to a 32-bit float wave file.
-- The words @ID@, @DIR@, @FRAMES@ and @PRESET@ are written in by scripts/ardour-test.sh.
AudioEngine:set_backend ("None (Dummy)", "", ""):set_device_name ("Silence")
create_session ("@DIR@/session", "kelm", 48000)
local track = Session:new_audio_track (2, 2, nil, 1, "Kelm", ARDOUR.PresentationInfo.max_order,
                                       ARDOUR.TrackMode.Normal, true):front ()
local player = ARDOUR.LuaAPI.new_luaproc (Session, "Kelm File Player")
local plug = ARDOUR.LuaAPI.new_plugin (Session, "@ID@", ARDOUR.PluginType.LXVST, "")
assert (not player:isnil (), "the file player did not load")
assert (not plug:isnil (), "the plug-in did not load")
track:add_processor_by_index (player, 0, nil, true)
track:add_processor_by_index (plug, 1, nil, true)
local pi = plug:to_insert ():plugin (0)
print ("parameters " .. pi:parameter_count ())
for i = 0, pi:parameter_count () - 1 do
	local _, t = pi:get_parameter_descriptor (i, ARDOUR.ParameterDescriptor ())
	print ("parameter " .. i .. " " .. t[2].label)
end
-- The circuit path at 4x with the drive and bass moved: CPU, Oversampling, Gain, Bass.
for _, p in ipairs ({ { 8, 0.0 }, { 3, 1.0 }, { 1, 0.8 }, { 4, 0.3 } }) do
	ARDOUR.LuaAPI.set_processor_param (plug, p[1], p[2])
end
local ex = Session:simple_export ()
ex:set_range (0, @FRAMES@)
ex:set_folder ("@DIR@")
ex:set_name ("ardour-out")
assert (ex:set_preset ("@PRESET@"), "the export preset was not found")
print ("export " .. tostring (ex:run_export ()))
close_session ()

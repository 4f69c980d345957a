-- Headless Ardour session with Kelm Circuit on a stereo track after the file player, saved as
-- it is (the plug-in holds its first example). scripts/ardour-test.sh then puts a document
-- into the saved session and opens it again with circuit_restore.lua. The words @ID@ and
-- @DIR@ are written in by scripts/ardour-test.sh.
AudioEngine:set_backend ("None (Dummy)", "", ""):set_device_name ("Silence")
create_session ("@DIR@/circuit", "circuit", 48000)
local track = Session:new_audio_track (2, 2, nil, 1, "Circuit", ARDOUR.PresentationInfo.max_order,
                                       ARDOUR.TrackMode.Normal, true):front ()
local player = ARDOUR.LuaAPI.new_luaproc (Session, "Kelm File Player")
local plug = ARDOUR.LuaAPI.new_plugin (Session, "@ID@", ARDOUR.PluginType.LXVST, "")
assert (not player:isnil (), "the file player did not load")
assert (not plug:isnil (), "the plug-in did not load")
track:add_processor_by_index (player, 0, nil, true)
track:add_processor_by_index (plug, 1, nil, true)
print ("created with " .. plug:to_insert ():plugin (0):parameter_count () .. " parameters")
Session:save_state ("", false, false, false, false, false)
close_session ()

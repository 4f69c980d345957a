-- Headless Ardour session for scripts/ardour-gui-test.sh: a stereo track holding the LV2
-- plug-in @URI@, saved for Ardour's GUI to open. Prints the track's and the processor's ids,
-- which name the plug-in's window in the window state the session keeps.
-- The words @URI@, @DIR@ and @NAME@ are written in by the script.
AudioEngine:set_backend ("None (Dummy)", "", ""):set_device_name ("Silence")
create_session ("@DIR@/@NAME@", "@NAME@", 48000)
local track = Session:new_audio_track (2, 2, nil, 1, "Kelm", ARDOUR.PresentationInfo.max_order,
                                       ARDOUR.TrackMode.Normal, true):front ()
local plug = ARDOUR.LuaAPI.new_plugin (Session, "@URI@", ARDOUR.PluginType.LV2, "")
assert (not plug:isnil (), "the plug-in did not load")
track:add_processor_by_index (plug, 0, nil, true)
Session:save_state ("", false, false, false, false, false)
print ("window P-" .. track:to_stateful ():id ():to_s () .. "-" .. plug:to_stateful ():id ():to_s ())
close_session ()

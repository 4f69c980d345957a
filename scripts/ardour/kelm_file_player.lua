ardour { ["type"] = "dsp", name = "Kelm File Player", category = "Utility", license = "MIT",
         description = "Plays a file into the track while the transport rolls (for the headless host test)" }
-- The file's path is written in by scripts/ardour-test.sh where @FILE@ stands.
function dsp_ioconfig () return { { audio_in = 2, audio_out = 2 } } end
local rd
function dsp_init (rate) rd = ARDOUR.Readable.load (Session, "@FILE@") end
function dsp_run (ins, outs, n_samples)
	local pos = Session:transport_sample ()
	for c = 1, #outs do
		ARDOUR.DSP.memset (outs[c], 0, n_samples)
		if Session:transport_rolling () and rd:size () > 0 then
			rd:at ((c - 1) % rd:size ()):read (outs[c], pos, n_samples, 0)
		end
	end
end

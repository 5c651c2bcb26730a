-- Run by ardour7-lua for the LV2 tools test: a session on the dummy back-end with one mono track
-- that records four seconds of the back-end's swelling sine sweep, then gets the plug-in named by
-- ORM_PLUGIN_URI with Volume at 7 and Oversampling at 8x, and is saved for ardour7-export.
local dir, name, uri = os.getenv("ORM_SESSION_DIR"), os.getenv("ORM_SESSION_NAME"), os.getenv("ORM_PLUGIN_URI")
assert(dir and name and uri, "ORM_SESSION_DIR, ORM_SESSION_NAME and ORM_PLUGIN_URI must be set")

local backend = AudioEngine:set_backend("None (Dummy)", "", "")
assert(backend, "no dummy back-end")
backend:set_device_name("Sine Sweep Swell")
local s = create_session(dir, name, 48000)
assert(s, "no session")

local tracks = s:new_audio_track(1, 1, nil, 1, "guitar", ARDOUR.PresentationInfo.max_order,
	ARDOUR.TrackMode.Normal, true, false)
local t = tracks:front()
t:rec_enable_control():set_value(1, PBD.GroupControlDisposition.NoGroup)
s:maybe_enable_record(false)
s:request_roll(ARDOUR.TransportRequestSource.TRS_UI)
ARDOUR.LuaAPI.usleep(4000000)
s:request_stop(false, false, ARDOUR.TransportRequestSource.TRS_UI)
ARDOUR.LuaAPI.usleep(1000000)
t:rec_enable_control():set_value(0, PBD.GroupControlDisposition.NoGroup)
t:monitoring_control():set_value(ARDOUR.MonitorChoice.MonitorDisk, PBD.GroupControlDisposition.NoGroup)

-- The take plays as recorded: no fade at its ends, so that it is the file lv2apply reads.
for r in t:playlist():region_list():iter() do
	local ar = r:to_audioregion()
	ar:set_fade_in_active(false)
	ar:set_fade_out_active(false)
end

local p = ARDOUR.LuaAPI.new_plugin(s, uri, ARDOUR.PluginType.LV2, "")
assert(not p:isnil(), "the plug-in was not found")
assert(t:add_processor_by_index(p, 0, nil, true), "the plug-in was not added")
ARDOUR.LuaAPI.set_processor_param(p, 0, 7.0)  -- volume
ARDOUR.LuaAPI.set_processor_param(p, 3, 8.0)  -- oversampling
local volume = ARDOUR.LuaAPI.get_processor_param(p, 0, true)
local factor = ARDOUR.LuaAPI.get_processor_param(p, 3, true)
print(string.format("plugin %s: volume %.1f, oversampling %.1f", p:display_name(), volume, factor))
s:save_state("", false, false, false, false, false)
close_session()

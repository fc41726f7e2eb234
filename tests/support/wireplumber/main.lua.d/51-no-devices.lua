-- A test's own PipeWire session: it works with the streams the test makes and never reaches for
-- the machine's sound cards or cameras, which belong to the person's session.
if alsa_monitor then alsa_monitor.enabled = false end
if v4l2_monitor then v4l2_monitor.enabled = false end
if libcamera_monitor then libcamera_monitor.enabled = false end

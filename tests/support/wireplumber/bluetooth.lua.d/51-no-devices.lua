-- No Bluetooth devices in a test's own PipeWire session either.
if bluez_monitor then bluez_monitor.enabled = false end

# Start-up with factory files, exposure patterns, and switching the sensor's readout.

heading "Start-up: factory files first, then the stored settings"
start_camera
beside_camera camsim --factory
stored_settings wb_mode=atwpro agc_max_gain=2
on_camera camctl -v shell <<<"get icr"
show "factory adjustment of the camera" "Loaded CameraParam : w,9,3,0xff,1;9,4,0xff,128;11,16,0xff,12;11,17,0xff,200"
show "factory white balance of this readout" "Loaded WBParam"
show "stored exposure: everything automatic" "Pattern A"

heading "Exposure patterns, then binned pixels"
on_camera_briefly camctl -v shell <<'COMMANDS'
config set auto_slow_shutter=on
do exposure
set iris-hold=on
config set auto_slow_shutter=off
do exposure
config set auto_shutter=off shutter_speed=10
do exposure
config set shutter_speed=2
do exposure
set iris-hold=off
set binning=on
set binning=off
COMMANDS
stop_camera
show "automatic shutter that may go slow" "Pattern C"
show "the same with the iris held open" "Pattern D"
show "fixed slow shutter" "Pattern E"
for pattern in A B F G; do expect "Pattern $pattern"; done
# The sensor's timing goes with the readout.
show "binning=on switches the sensor's readout" "w 0/0x03=0x01"
show "and its timing" "w 16/0x09=0x09 91/0x00=0x02 91/0x02=0x09"
expect "w 16/0x09=0x0a 91/0x00=0x03 91/0x02=0x0c"

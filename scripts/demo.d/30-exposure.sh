# Start-up with factory files, exposure patterns, and switching the sensor's readout.

heading "Start-up: factory files first, then the stored settings"
camsim --factory
stored_settings color=color wb_mode=atwpro saturation=3 contrast=3 sharpness=3 expcomp=9 \
  exposure_mode=1 auto_shutter=on agc_max_gain=2
start_camera
on_camera camctl shell <<<"get icr"
expect "Loaded CameraParam : w,9,3,0xff,1;9,4,0xff,128;11,16,0xff,12;11,17,0xff,200"
expect "Loaded WBParam"
expect "Pattern A"

heading "Exposure patterns: automatic and fixed shutter, slow and normal, iris held open and free; then binned pixels"
on_camera_briefly camctl shell <<'COMMANDS'
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
for pattern in A B C D E F G; do expect "Pattern $pattern"; done
# The sensor's timing goes with the readout.
expect "w 0/0x03=0x01"
expect "w 16/0x09=0x09 91/0x00=0x02 91/0x02=0x09"
expect "w 16/0x09=0x0a 91/0x00=0x03 91/0x02=0x0c"

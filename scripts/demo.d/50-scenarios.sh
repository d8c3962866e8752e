# Scenarios: a sensor that is slow to switch, a flickering light. Picture: what settings look like.

heading "Scenario three_attempts: the sensor changes its readout only when it is told for the third time"
camsim --factory
rm /var/tmp/AdjCamera.txt # no EVR worker between
stored_settings color=color wb_mode=atwpro saturation=3 exposure_mode=1 auto_shutter=on
start_camera --scenario scenarios/three_attempts.txt
on_camera_briefly camctl shell <<'COMMANDS'
set binning=on
set binning=off
COMMANDS
stop_camera
expect "do_binning retrying..." 4
expect "w 0/0x03=0x01" 3
expect "w 0/0x03=0x00" 3
expect "r 2/0x00 -> 03 01 10  # readout_status" 3

heading "Scenario flicker: white balance is measured while the light swings"
start_camera --scenario scenarios/flicker.txt
on_camera_briefly camctl shell <<'COMMANDS'
set wb=onepush
do onepush
COMMANDS
stop_camera
expect "# measured_red_gain measured_blue_gain" 13
expect "OnepushWB  R:0e42 B:07ed"

heading "Picture: a colour chart before and after the settings"
stored_settings color=color wb_mode=atwpro saturation=3 contrast=3 sharpness=3 expcomp=9
start_camera --picture build/demo/picture.png --save-registers "$work/registers"
cp build/demo/picture.png build/demo/picture-before.png
on_camera_briefly camctl shell <<<"set wb=mercurylampmega saturation=6 contrast=5 sharpness=6 gamma=2"
stop_camera
mv build/demo/picture.png build/demo/picture-after.png
if cmp -s build/demo/picture-before.png build/demo/picture-after.png; then die "the settings do not show"; fi
say "registers of the second picture:"
grep -E '# (contrast|sharpness|saturation|gamma|manual_.*_gain_..)$' "$work/registers" | tee -a "$work/seen"
expect "10/0x09=0xe0  # saturation"
expect "16/0x06=0x02  # gamma"
say "see build/demo/picture-before.png and build/demo/picture-after.png"

# Scenarios: a sensor that is slow to switch, a flickering light. Picture: what settings look like.

heading "Scenario three_attempts: the sensor switches when told for the third time"
start_camera --scenario scenarios/three_attempts.txt
beside_camera camsim --factory
beside_camera rm /var/tmp/AdjCamera.txt # no EVR worker between
on_camera_briefly camctl -v shell <<'COMMANDS'
set binning=on
set binning=off
COMMANDS
stop_camera
show "binning=on and off: told three times each" "w 0/0x03=0x01" 3
expect "w 0/0x03=0x00" 3
show "with two failures before" "do_binning retrying..." 4
show "then the other readout is in force" "r 2/0x00 -> 03 01 10  # readout_status" 3

heading "Scenario flicker: white balance is measured while the light swings"
start_camera --scenario scenarios/flicker.txt
on_camera_briefly camctl -v shell <<'COMMANDS'
set wb=onepush
do onepush
COMMANDS
stop_camera
show "13 readings until five lie close together" "# measured_red_gain measured_blue_gain" 13
show "the result is that of a steady light" "OnepushWB  R:0e42 B:07ed"

heading "Picture: a colour chart before and after the settings"
start_camera --picture build/demo/picture.png --save-registers "$work/registers"
stored_settings wb_mode=atwpro
cp build/demo/picture.png build/demo/picture-before.png
on_camera_briefly camctl -v shell <<<"set wb=mercurylampmega saturation=6 contrast=5 sharpness=6 gamma=2"
stop_camera
mv build/demo/picture.png build/demo/picture-after.png
if cmp -s build/demo/picture-before.png build/demo/picture-after.png; then die "the settings do not show"; fi
{ say "registers of the second picture:" && cat "$work/registers"; } | record
cat "$work/registers" >>"$work/seen"
show "saturation=6" "10/0x09=0xe0  # saturation"
show "gamma=2" "16/0x06=0x02  # gamma"
say "  see build/demo/picture-before.png and build/demo/picture-after.png"

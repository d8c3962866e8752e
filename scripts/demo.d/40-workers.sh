# Workers and devices: one-push white balance, EVR, day/night with its filter pulse, iris hold, flash.

heading "Workers: one-push white balance, EVR; night and day; iris hold"
start_camera --scenario dusk
beside_camera camsim --factory
stored_settings wb_mode=atwpro
on_camera_briefly camctl -v shell < <(
  cat <<'COMMANDS'
set wb=onepush
do onepush
config show onepush_rgain onepush_bgain
set dnmode=on
set dnmode=off
set iris-hold=on
get iris-hold
set iris-hold=off
get iris-hold
COMMANDS
  sleep 7 # the EVR worker looks once a second
)
{ say "the filter's lines:" && cat "$work/devices/journal"; } | record
cat "$work/devices/journal" >>"$work/seen"
show "the measured gains" "OnepushWB  R:0e42 B:07ed"
expect "w 12/0x80=0x42 12/0x81=0x0e 12/0x82=0xed 12/0x83=0x07"
show "are stored for the next start" "onepush_rgain = 3650"
show "EVR follows a long shutter by itself" "w 9/0x03=0xff"
show "dnmode=on moves the IR-cut filter by a pulse" "gpio-0 write 80/c0" 1
expect "gpio-0 write 40/c0" 1
expect "gpio-0 write 00/c0" 2
expect "gpio-4 write 08/08" 1
show "iris-hold=on opens the iris" "w 11/0x05=0x55 11/0x06=0x55"
expect "iris-hold = 1"
show "until it is released" "iris-hold = 0"

heading "Flash: store the parameter area, lose it, load it again"
area=$work/area
area_start=$((0x1FFC000))
memory() { dd of="$work/devices/mem" bs=16384 seek=$((area_start / 16384)) conv=notrunc status=none; }
head -c 16128 /dev/urandom >"$area"
memory <"$area"
on_camera camctl flash store --yes
head -c 16128 /dev/zero | memory
on_camera camctl flash load --yes
cmp --ignore-initial=$area_start:0 --bytes=16128 "$work/devices/mem" "$area" || die "the area has not come back"
stop_camera
show "from memory to flash" "stored to flash"
show "and back, byte for byte" "loaded from flash"

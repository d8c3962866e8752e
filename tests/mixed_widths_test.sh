#!/usr/bin/env bash
# A 32-bit library and a 64-bit simulated camera over one shared record: a read, a write and a request, which the 64-bit
# library then makes once more from its recording.
# usage: mixed_widths_test.sh SOURCE_DIR BUILD_DIR EMULATOR...    builds the programs of the release preset itself
set -euo pipefail

if [ "${CAMERA_TEST_SANDBOX:-}" != entered ]; then
  log=$(mktemp)
  trap 'rm -f "$log"' EXIT
  { cd "$1" && cmake --preset release && cmake --build build/release --target camsim camctl; } >"$log" 2>&1 ||
    { cat "$log"; echo "the programs of the release preset cannot be built"; exit 1; }
  "$2/bin/test_sandbox" "$0" "$@"
  exit
fi

programs=$1/build/release/bin library=$2/lib/libcamera_ctrl.so emulator=("${@:3}") camctl=$2/bin/camctl
expect() {
  [ "$2" = "$3" ] || { printf '%s: %s, expected %s\n' "$1" "$2" "$3"; exit 1; }
}
bits() { od -An -tu1 -j4 -N1 "$1" | tr -d ' '; }  # of an ELF file: 1 for 32, 2 for 64
expect "bits of the library" "$(bits "$library")" 1
expect "bits of camsim" "$(bits "$programs/camsim")" 2

cd /tmp
mkdir config
export IPCAM_CONFIG_DIR=/tmp/config
head -c 880 /dev/zero >config/all.conf
"$programs/camsim" --trace --set 10/0x0a=0x11 >trace 2>messages &
trap 'kill $! 2>/dev/null' EXIT
for _ in $(seq 100); do grep -q 'serving requests' messages && break; sleep 0.05; done

# call ARGUMENT...: what camctl prints, without the library's own lines.
call() { "${emulator[@]}" "$camctl" "$@" 2>errors || { cat errors; exit 1; }; }
expect "a read" "$(call reg read 10/0x0a)" "10/0x0a effect = 0x11"
expect "a write" "$(call reg write 10/9=0x42)" "10/0x09 saturation mask 0xff  0x00 -> 0x42"
emulator+=(-E "LD_PRELOAD=$2/lib/camctl/libcamera_ctrl_recorder.so" -E CAMERA_CTRL_RECORD_FILE=recording)
expect "a request" "$(call set saturation=4 | tail -n 1 | tr -s ' ')" " 10/0x09 saturation mask 0xff 0x42 -> 0xa0"
expect "exchanges of the request" "$(grep -c '^w 10/0x09=0xa0 -> 02 01' trace)" 1
echo "$(wc -l <trace) exchanges between 32 and 64 bits"
expect "word size of the recording" "$(grep -o '"word_bits":[0-9]*' recording)" '"word_bits":32'
expect "the request in it" "$(grep -c '"event":"request".*"name":"saturation","value":4' recording)" 1
replayed=$("$programs/camctl" replay recording) || { echo "$replayed"; exit 1; }
expect "the replay" "$(grep -cE '^the same: [1-9][0-9]* exchanges$' <<<"$replayed")" 1

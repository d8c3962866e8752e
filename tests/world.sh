#!/usr/bin/env bash
# Runs a command in a world of its own: /tmp, /var/tmp, camera devices and System V objects. Shared ones are no way
# out: a test that used them could meet a running simulator, or another test.
# usage: world.sh BUILD_DIR COMMAND [ARGUMENT...]    the source and build folders stay where they are
set -euo pipefail

if [ "${CAMERA_TEST_WORLD:-}" != new ]; then
  rights=()
  if [ "$(id -u)" -ne 0 ]; then rights=(--map-root-user); fi
  exec env CAMERA_TEST_WORLD=new unshare --mount --ipc "${rights[@]}" "$0" "$@"
fi

here=$PWD build=$(realpath "$1") source=$(realpath "$(dirname "$0")/..")
shift
# An open folder can be bound to its place again when its path leads to an empty one.
exec {source_fd}<"$source" {build_fd}<"$build"
for folder in /tmp /var/tmp; do mount -t tmpfs -o mode=1777 tests "$folder"; done
keep() {
  case $1 in
    /tmp/* | /var/tmp/*) mkdir -p "$1" && mount --no-canonicalize --bind "/proc/self/fd/$2" "$1" ;;
  esac
}
keep "$source" "$source_fd"
keep "$build" "$build_fd"

# The tests' stand-ins take these names before they reach the system; hardware must be out of reach all the same.
for device in /dev/gpio-0 /dev/gpio-4 /dev/corvo2_gpio-0 /dev/mtdblock3 /dev/mem; do
  if [ -e "$device" ]; then mount --bind /dev/null "$device"; fi
done

cd "$here" 2>/dev/null || cd /tmp  # which may be another folder now
exec {source_fd}<&- {build_fd}<&-
export CAMERA_TEST_WORLD=entered
exec "$@"

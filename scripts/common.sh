# Common parts of the scripts: folders, packages, one build of a preset. To be sourced.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)
cd "$root"

say() { printf '%s\n' "$*"; }
die() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# Runs a command, showing what it prints only when it fails.
quietly() {
  local log status=0
  log=$(mktemp)
  "$@" >"$log" 2>&1 || status=$?
  if [ "$status" -ne 0 ]; then cat "$log"; fi
  rm -f "$log"
  return "$status"
}

# need_packages GROUP...: installs what is missing of these groups of scripts/packages.
need_packages() {
  local wanted missing=() package
  wanted=$(awk -v groups=" $* " 'NF && $1 !~ /^#/ && index(groups, " " $1 " ") { print $2 }' scripts/packages)
  for package in $wanted; do
    dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  say "installing ${missing[*]}"
  command -v apt-get >/dev/null || die "apt-get is missing: install these packages by hand"
  quietly as_root apt-get update -q || die "apt-get update failed"
  quietly as_root env DEBIAN_FRONTEND=noninteractive apt-get install -qy --no-install-recommends "${missing[@]}" ||
    die "apt-get install failed"
}

configure() {
  if command -v ccache >/dev/null; then export CMAKE_CXX_COMPILER_LAUNCHER=ccache; fi
  quietly cmake "$@"
}

# build DIRECTORY ARGUMENT...: configures with these arguments and builds; shows what was printed only on failure.
build() {
  local directory=$1
  shift
  configure "$@" && quietly cmake --build "$directory" -j "$jobs"
}

# ThreadSanitizer cannot start where the kernel spreads the address space wider than it expects.
without_address_randomisation() {
  if setarch -R true 2>/dev/null; then setarch -R "$@"; else "$@"; fi
}

sources() {
  find . \( -path ./build -o -path ./.git \) -prune -o \( -name '*.h' -o -name '*.cpp' \) -print | sort
}

#!/usr/bin/env bash
# Looks at the programs and libraries of an installed, stripped tree: binaries_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source_dir=$1 build_dir=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build_dir" --strip --prefix "$work" >"$work/install.log"
mapfile -t files < <(find "$work/bin" "$work"/lib* -type f \( -perm -u+x -o -name '*.so*' \))
"$source_dir/scripts/check-binaries" "${files[@]}"

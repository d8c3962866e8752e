#!/usr/bin/env bash
# Builds the README's example against an installed tree, with CMake and with pkg-config, and runs both.
# usage: install_test.sh SOURCE_DIR BUILD_DIR COMPILER
set -euo pipefail
source_dir=$1 build_dir=$2 compiler=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build_dir" --prefix "$prefix" >"$work/install.log"

awk '/^```cpp/ { inside = 1; next } /^```/ { inside = 0 } inside' "$source_dir/README.md" >"$work/example.cpp"
diff <(tail -n +2 "$source_dir/examples/first_steps.cpp") "$work/example.cpp" ||
  { echo "the README's example is not examples/first_steps.cpp"; exit 1; }

cat >"$work/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(example LANGUAGES CXX)
find_package(camera_ctrl 1.0 REQUIRED)
add_executable(with_cmake example.cpp)
target_link_libraries(with_cmake PRIVATE camera_ctrl::camera_ctrl)
CMAKE
cmake -G Ninja -S "$work" -B "$work" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$prefix" >"$work/configure.log"
cmake --build "$work" >"$work/build.log"

packages=$(dirname "$(find "$prefix" -name camera_ctrl.pc)")
# Flags are words of their own: no quotes.
"$compiler" -std=c++20 -Wall -Wextra -Werror "$work/example.cpp" -o "$work/with_pkg_config" \
  $(PKG_CONFIG_PATH=$packages pkg-config --cflags --libs camera_ctrl)

# Runs both beside the installed camera, whose namespaces leave its own tree in place.
cp "$work"/with_* "$prefix/bin"
export LD_LIBRARY_PATH=${packages%/pkgconfig}
for program in with_cmake with_pkg_config; do
  "$prefix/bin/camsim" exec --start --devices "$prefix/devices" "$prefix/bin/$program" >"$work/output" 2>&1 ||
    { cat "$work/output"; exit 1; }
  grep -qx 'Saturation(3): 0, GetICR(): 0, IR-cut filter: 60' "$work/output" || { cat "$work/output"; exit 1; }
done
echo "the README's example runs, built with CMake and with pkg-config"

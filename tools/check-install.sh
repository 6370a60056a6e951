#!/usr/bin/env bash
# Installs a built tree into a staging prefix and builds the consumer project against it twice,
# with find_package(zustd 1 CONFIG) and with pkg-config, then runs both programs: each calls
# the library and checks its answers, and must really depend on libzustd.so.1.
#   tools/check-install.sh host|armhf|arm64
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
target=${1:?usage: check-install.sh host|armhf|arm64}
[ -x "$(command -v pkg-config)" ] ||
  { echo "install check not run: pkg-config is missing (apt-get install -y pkg-config)" >&2; exit 3; }
build=build/$target
stage=$PWD/build/stage-$target
rm -rf "$stage" build/consumer-$target
cmake --install "$build" --prefix "$stage" >/dev/null

run=()
cmake_args=()
cxx=g++
libdir=$stage/lib
case $target in
  host) export LD_LIBRARY_PATH=$libdir ;;
  armhf | arm64)
    triplet=arm-linux-gnueabihf qemu=qemu-arm
    [ "$target" = arm64 ] && triplet=aarch64-linux-gnu qemu=qemu-aarch64
    libdir=$stage/lib/$triplet
    # The toolchain file confines package searches to the target's root; name the package.
    cmake_args=(--toolchain "$PWD/cmake/toolchains/$triplet.cmake" -Dzustd_DIR="$libdir/cmake/zustd")
    cxx=$triplet-g++
    run=($qemu -L /usr/$triplet -E "LD_LIBRARY_PATH=$libdir")
    ;;
  *) echo "usage: check-install.sh host|armhf|arm64" >&2; exit 2 ;;
esac

# A consumer that does not call the library would pass against anything (and --as-needed
# would drop the library from it): both programs must list libzustd.so.1 as needed.
needs_zustd() {
  readelf -d "$1" | grep -q 'NEEDED.*\[libzustd\.so\.1\]' ||
    { echo "install check ($target): $1 does not link libzustd.so.1" >&2; exit 1; }
}

cmake -S examples/consumer -B build/consumer-$target -DCMAKE_PREFIX_PATH="$stage" \
  -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "${cmake_args[@]}" >/dev/null
cmake --build build/consumer-$target >/dev/null
needs_zustd build/consumer-$target/consumer
"${run[@]}" build/consumer-$target/consumer

export PKG_CONFIG_LIBDIR=$libdir/pkgconfig
# shellcheck disable=SC2046
$cxx -std=c++11 -Wall -Wextra -Werror -o build/consumer-$target/consumer-pc \
  examples/consumer/main.cpp -Wl,--as-needed $(pkg-config --cflags --libs zustd)
needs_zustd build/consumer-$target/consumer-pc
"${run[@]}" build/consumer-$target/consumer-pc
echo "install check ($target): CMake package and pkg-config consumers work"

#!/usr/bin/env bash
# Installs a built tree into a staging prefix and builds the consumer project against it twice,
# with find_package(zustd 1 CONFIG) and with pkg-config, then runs both programs.
#   tools/check-install.sh host|armhf
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
target=${1:?usage: check-install.sh host|armhf}
build=build/$target
stage=$PWD/build/stage-$target
rm -rf "$stage" build/consumer-$target
cmake --install "$build" --prefix "$stage" >/dev/null

run=()
cmake_args=()
cxx=g++
libdir=$stage/lib
if [ "$target" = armhf ]; then
  libdir=$stage/lib/arm-linux-gnueabihf
  # The toolchain file confines package searches to the target's root; name the package.
  cmake_args=(--toolchain "$PWD/cmake/toolchains/arm-linux-gnueabihf.cmake"
              -Dzustd_DIR="$libdir/cmake/zustd")
  cxx=arm-linux-gnueabihf-g++
  run=(qemu-arm -L /usr/arm-linux-gnueabihf -E "LD_LIBRARY_PATH=$libdir")
else
  export LD_LIBRARY_PATH=$libdir
fi

cmake -S examples/consumer -B build/consumer-$target -DCMAKE_PREFIX_PATH="$stage" \
  -DCMAKE_COMPILE_WARNING_AS_ERROR=ON "${cmake_args[@]}" >/dev/null
cmake --build build/consumer-$target >/dev/null
"${run[@]}" build/consumer-$target/consumer

export PKG_CONFIG_LIBDIR=$libdir/pkgconfig
# shellcheck disable=SC2046
$cxx -std=c++11 -Wall -Wextra -Werror -o build/consumer-$target/consumer-pc \
  examples/consumer/main.cpp $(pkg-config --cflags --libs zustd)
"${run[@]}" build/consumer-$target/consumer-pc
echo "install check ($target): CMake package and pkg-config consumers work"

#!/usr/bin/env bash
# Installs the kit from build DIR into a fresh prefix, then builds and runs
# the consumer example against it twice: with find_package(MireloKit) and
# with pkg-config alone.
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD="${1:-build}"
STAGE="$BUILD/consumer-prefix"
rm -rf "$STAGE" "$BUILD/consumer"
cmake --install "$BUILD" --prefix "$STAGE" > /dev/null

cmake -S examples/consumer -B "$BUILD/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$PWD/$STAGE"
cmake --build "$BUILD/consumer"
ctest --test-dir "$BUILD/consumer" --output-on-failure

PKG_CONFIG_PATH="$PWD/$STAGE/lib/pkgconfig" \
  c++ -std=c++20 examples/consumer/pkgconfig_main.cc -o "$BUILD/consumer/pkgconfig_main" \
  $(PKG_CONFIG_PATH="$PWD/$STAGE/lib/pkgconfig" pkg-config --cflags --libs mirelo-kit)
"$BUILD/consumer/pkgconfig_main"
echo "consumer: the installed package builds and runs"

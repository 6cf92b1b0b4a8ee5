#!/usr/bin/env bash
# Builds the kit and runs every test twice: in a normal build, and in a build
# under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
JOBS="$(nproc)"

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$JOBS"
ctest --test-dir build --output-on-failure -j"$JOBS"
# The installed package, as a user's project takes it.
bash scripts/consumer.sh build

cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DMIRELO_SANITIZE=ON -DMIRELO_BUILD_BENCH=OFF
cmake --build build-asan -j"$JOBS"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j"$JOBS"

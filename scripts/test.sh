#!/usr/bin/env bash
# Builds the kit and runs every test twice: in a Release build (gcc), and in
# a build with clang-14 under AddressSanitizer and UndefinedBehaviorSanitizer
# that also builds the fuzz targets and runs each briefly over its seed
# corpus (ctest's fuzz.* tests; scripts/fuzz.sh runs them longer).  Last, a
# ThreadSanitizer build of the thread stress test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
JOBS="$(nproc)"

# lld links the large test binaries several times faster than the default
# linker; every build here uses it when it is installed.
LINK=()
if command -v ld.lld > /dev/null; then
  LINK=(-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld -DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=lld)
fi

# Warnings are errors in every build made here (MIRELO_WERROR; users'
# builds leave it off).  Release, the configuration users pick most: its
# optimiser warns about things the others do not (the tests themselves
# compile at -O1 in it).
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DMIRELO_WERROR=ON "${LINK[@]}"
cmake --build build -j"$JOBS"
ctest --test-dir build --output-on-failure -j"$JOBS"
# The installed package, as a user's project takes it.
bash scripts/consumer.sh build

cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DMIRELO_WERROR=ON -DMIRELO_SANITIZE=ON -DMIRELO_BUILD_BENCH=OFF \
  -DMIRELO_BUILD_FUZZ=ON -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 "${LINK[@]}"
cmake --build build-asan -j"$JOBS"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j"$JOBS"

# ThreadSanitizer: the kit's libraries and the thread stress test only (a
# debug build, so that the main-thread checks abort as they should), a few
# minutes on two cores.
cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DMIRELO_SANITIZE=OFF -DMIRELO_BUILD_BENCH=OFF \
  -DMIRELO_BUILD_FUZZ=OFF -DMIRELO_BUILD_TOOLS=OFF -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
  -DCMAKE_CXX_FLAGS="-fsanitize=thread -O1" -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread"
cmake --build build-tsan -j"$JOBS" --target mirelo_thread_stress
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 build-tsan/tests/mirelo_thread_stress

#!/usr/bin/env bash
# Installs what is missing, builds the kit and runs the demo on the
# simulated device.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$(nproc)" --target mirelo-demo
cmake --build build -j"$(nproc)" --target mirelo-inspect
./build/demo/mirelo-demo build/demo-output

#!/usr/bin/env bash
# Runs the soak test long: ROUNDS round trips (default 1000000) in the
# sanitizer build (LeakSanitizer on), sampling the resident memory every
# few seconds so that a slow growth shows.  Usage: scripts/soak.sh [ROUNDS] [SEED]
set -euo pipefail
cd "$(dirname "$0")/.."
ROUNDS="${1:-1000000}"
SEED="${2:-20261121}"
BIN=build-asan/tests/mirelo_tests
[ -x "$BIN" ] || { echo "soak: build the sanitizer build first (bash scripts/test.sh)"; exit 2; }
MIRELO_SOAK_ROUNDS="$ROUNDS" MIRELO_SOAK_SEED="$SEED" ASAN_OPTIONS=detect_leaks=1 \
  "$BIN" --gtest_filter='SoakTest.*' &
pid=$!
start=$(date +%s)
while kill -0 "$pid" 2>/dev/null; do
  rss=$(awk '/VmRSS/ {print $2}' "/proc/$pid/status" 2>/dev/null || true)
  [ -n "$rss" ] && echo "soak: $(( $(date +%s) - start )) s  rss ${rss} kB"
  sleep 5
done
wait "$pid"
echo "soak: $ROUNDS rounds, seed $SEED, passed in $(( $(date +%s) - start )) s"

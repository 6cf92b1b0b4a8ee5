#!/usr/bin/env bash
# Runs every fuzz target (or the ones named) for longer than the test run
# does, one after another on one core, and prints per target the executions,
# the coverage (cov and ft of libFuzzer's last status line), the time and
# the findings.
#
#   scripts/fuzz.sh [RUNS | SECONDSs] [TARGET...]
#     RUNS       executions per target (default 10000000)
#     SECONDSs   seconds per target instead, e.g. 300s
#   FUZZ_CAP     time cap per target in seconds (default 600)
#   FUZZ_BUILD   the build directory (default build-fuzz: clang-14,
#                optimised, sanitizers on, configured when missing; the
#                test run's build-asan works too, at a third of the speed)
#   FUZZ_JOBS    build jobs (default 1)
#   FUZZ_BIG     1: megabyte-sized inputs (-max_len of 4 MiB without
#                libFuzzer's slow growth of lengths), with seeds of 1 and
#                4 MiB written for the URL targets (open_url, stateful): a
#                query of repeated token keys, and one long value
#
# New inputs go to $FUZZ_BUILD/fuzz/long-corpus/<target> (kept between
# runs); crashes, leaks, time-outs and wrong answers to
# $FUZZ_BUILD/fuzz/findings/.  Exits non-zero when a target found anything.
set -euo pipefail
cd "$(dirname "$0")/.."

LIMIT="${1:-10000000}"
[ $# -gt 0 ] && shift
CAP="${FUZZ_CAP:-600}"
BUILD="${FUZZ_BUILD:-build-fuzz}"
JOBS="${FUZZ_JOBS:-1}"
ALL=(bplist keyed_archive plist_json pasteboard open_url card_list qr_answer doctor stateful)
TARGETS=("$@")
[ ${#TARGETS[@]} -eq 0 ] && TARGETS=("${ALL[@]}")

if [[ "$LIMIT" == *s ]]; then
  SECONDS_EACH="${LIMIT%s}"
  RUN_FLAGS=(-max_total_time="$(( SECONDS_EACH < CAP ? SECONDS_EACH : CAP ))")
else
  RUN_FLAGS=(-runs="$LIMIT" -max_total_time="$CAP")
fi

dict_for() {
  case "$1" in
    open_url | stateful) echo fuzz/dict/open_url.dict ;;
    plist_json | card_list | qr_answer) echo fuzz/dict/json.dict ;;
    *) echo fuzz/dict/plist.dict ;;
  esac
}

if [ ! -f "$BUILD/CMakeCache.txt" ]; then
  cmake -S . -B "$BUILD" -G Ninja -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMIRELO_BUILD_FUZZ=ON -DMIRELO_BUILD_TESTS=OFF -DMIRELO_BUILD_BENCH=OFF > /dev/null
fi
cmake --build "$BUILD" -j"$JOBS" --target $(printf '%s_fuzz ' "${TARGETS[@]}") > /dev/null

BIG_FLAGS=()
if [ "${FUZZ_BIG:-0}" = 1 ]; then
  BIG_FLAGS=(-max_len=4194304 -len_control=0 -rss_limit_mb=4096 -malloc_limit_mb=4096)
  big="$BUILD/fuzz/big-seeds"
  mkdir -p "$big/open_url" "$big/stateful"
  # `yes` ends on a broken pipe, which is no failure here.
  set +o pipefail
  for mb in 1 4; do
    n=$(( mb * 1048576 / 22 ))
    url="mr0123456789abcdef://oauth?$(yes 'mirelo_auth_token=abc&' | head -n "$n" | tr -d '\n')"
    printf '\0%s\n' "$url" > "$big/open_url/keys-${mb}m"
    printf '\1\1%s\n\6' "$url" > "$big/stateful/keys-${mb}m"
    long="https://host.example.com/mirelo/mr0123456789abcdef/oauth?code=$(head -c $(( mb * 1048576 )) /dev/zero | tr '\0' 'A')"
    printf '\1%s\n' "$long" > "$big/open_url/long-${mb}m"
  done
  set -o pipefail
fi

FINDINGS_DIR="$BUILD/fuzz/findings"
mkdir -p "$FINDINGS_DIR"
status=0
rows=()
for t in "${TARGETS[@]}"; do
  corpus="$BUILD/fuzz/long-corpus/$t"
  # Megabyte inputs are kept apart, so that the usual runs stay quick.
  [ "${FUZZ_BIG:-0}" = 1 ] && corpus="$BUILD/fuzz/long-corpus-big/$t"
  log="$BUILD/fuzz/$t.log"
  mkdir -p "$corpus"
  before=$(ls "$FINDINGS_DIR" | wc -l)
  start=$(date +%s)
  rc=0
  ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}" \
    "$BUILD/fuzz/${t}_fuzz" "${RUN_FLAGS[@]}" "${BIG_FLAGS[@]}" -rss_limit_mb=2048 -timeout=25 -print_final_stats=1 \
    -dict="$(dict_for "$t")" -artifact_prefix="$FINDINGS_DIR/$t-" "$corpus" "fuzz/corpus/$t" \
    $( [ "${FUZZ_BIG:-0}" = 1 ] && [ -d "$BUILD/fuzz/big-seeds/$t" ] && echo "$BUILD/fuzz/big-seeds/$t" ) > "$log" 2>&1 || rc=$?
  secs=$(( $(date +%s) - start ))
  execs=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$log" | tail -1 | awk '{print $2}')
  last=$(grep -E '^#[0-9]+' "$log" | grep -o 'cov: [0-9]* ft: [0-9]* corp: [0-9]*' | tail -1)
  cov=$(echo "$last" | awk '{print $2}')
  ft=$(echo "$last" | awk '{print $4}')
  corp=$(echo "$last" | awk '{print $6}')
  found=$(( $(ls "$FINDINGS_DIR" | wc -l) - before ))
  if [ "$rc" -ne 0 ] || [ "$found" -ne 0 ]; then
    status=1
    echo "== $t: exit $rc, $found finding(s); see $log" >&2
    grep -E '==[0-9]+==ERROR|==fuzz==|runtime error|Test unit written' "$log" | head -5 >&2 || true
  fi
  rows+=("$(printf '%-14s %12s %7s %8s %7s %7s %8s' "$t" "${execs:-?}" "${cov:-?}" "${ft:-?}" "${corp:-?}" "${secs}s" "$found")")
done

printf '%-14s %12s %7s %8s %7s %7s %8s\n' target executions cov ft corpus time findings
printf '%s\n' "${rows[@]}"
exit $status

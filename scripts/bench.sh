#!/usr/bin/env bash
# Builds the benchmarks in a release build of their own, runs them, counts
# the instructions of the small cases with callgrind, and writes the figures
# into docs/performance.md (between its GENERATED markers), the raw results
# into docs/perf/*.json and the plot into docs/perf/send-large.png.
#
#   scripts/bench.sh                 everything (about 5 minutes on 2 busy cores once built)
#   scripts/bench.sh --filter RE     only the cases matching RE; prints a table, writes nothing
#   scripts/bench.sh --no-callgrind  skip the instruction counts
#
# Environment: BUILD_DIR (default build-bench), JOBS (default 2),
# REPETITIONS of the small cases (default 5).  The 1 GiB file share runs only
# when at least 6 GiB of memory are available.
#
# The machine may be shared: every time compared is CPU time (the thread's
# own, page faults included), each case runs several repetitions and the
# median is reported, and every goal is judged against a reference measured
# in the same run.
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT="$(pwd)"
BUILD_DIR="${BUILD_DIR:-$ROOT/build-bench}"
JOBS="${JOBS:-2}"
REPETITIONS="${REPETITIONS:-5}"
FILTER=""
CALLGRIND=1
while [ $# -gt 0 ]; do
  case "$1" in
    --filter) FILTER="$2"; shift 2 ;;
    --no-callgrind) CALLGRIND=0; shift ;;
    *) echo "usage: $0 [--filter REGEX] [--no-callgrind]" >&2; exit 2 ;;
  esac
done

PERF_DIR="$ROOT/docs/perf"
if [ "$CALLGRIND" = 1 ] && ! command -v valgrind >/dev/null; then
  echo "bench: valgrind not found; no instruction counts" >&2
  CALLGRIND=0
fi
WORK="$(mktemp -d)"
trap 'rm -rf "$WORK"' EXIT

# ---- build ------------------------------------------------------------------
cmake -S "$ROOT" -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DMIRELO_BUILD_TESTS=OFF -DMIRELO_BUILD_TOOLS=OFF -DMIRELO_BUILD_BENCH=ON >"$WORK/cmake.log" \
  || { cat "$WORK/cmake.log"; exit 1; }
cmake --build "$BUILD_DIR" -j"$JOBS" --target mirelo_bench
BENCH="$BUILD_DIR/bench/mirelo_bench"

# Every large allocation is a fresh mapping, returned on free: "fresh memory"
# means the same for the kit and the references, and peaks are not hidden
# by memory the allocator kept from an earlier case.
export GLIBC_TUNABLES=glibc.malloc.mmap_threshold=131072

# ---- the cases ----------------------------------------------------------------
SMALL_CASES=(
  BM_Send_Text BM_Send_Text_RecordOnly BM_Ref_Libplist_Text
  BM_Answer_Record BM_Answer_OAuthUrl BM_Answer_PayUrl BM_Answer_Fixture_Plant
  BM_Ref_Libplist_DecodeAnswer BM_Ref_Uriparser_OAuthUrl BM_Ref_Uriparser_PayUrl
  BM_Log_NoSink BM_Log_BlockSink BM_Log_FormatOnly BM_Send_Text_BlockSink
  BM_Cold_RegisterApp BM_Warm_RegisterApp BM_Cold_FirstSend BM_Warm_Send
)
SMALL_RE="^($(IFS='|'; echo "${SMALL_CASES[*]}"))(/|$)"
LARGE_RE='^BM_(Send|Ref_Libplist|Ref_Copy)_(Image25MiB|Image_ThumbnailDecode|File/)'

avail_kib="$(awk '/^MemAvailable:/ {print $2}' /proc/meminfo)"
if [ "${avail_kib:-0}" -ge $((6 * 1024 * 1024)) ]; then
  export MIRELO_BENCH_1GIB=1
else
  unset MIRELO_BENCH_1GIB || true
  echo "bench: less than 6 GiB available; the 1 GiB file share is skipped" >&2
fi

run_bench() {  # regex, json output, extra flags...
  local re="$1" out="$2"
  shift 2
  "$BENCH" --benchmark_filter="$re" --benchmark_out="$out" --benchmark_out_format=json "$@" \
    2> >(grep -v 'Library was built as DEBUG' >&2)
}

# The instructions of one iteration of a case: two callgrind runs with fixed
# iteration counts, the difference divided by the difference of the counts
# (set-up and the benchmark library's own work cancel out).
count_instructions() {  # case name
  # The counts are written with the same number of digits, so that the two
  # environments (and with them the start-up work) are the same size.
  local name="$1" n1=0100 n2=1100 i1 i2
  for n in $n1 $n2; do
    MIRELO_BENCH_ITERATIONS=$n valgrind --tool=callgrind --callgrind-out-file="$WORK/cg.$name.$n" \
      "$BENCH" --benchmark_filter="^$name/" >/dev/null 2>&1
  done
  i1="$(awk '/^(summary|totals):/ {print $2; exit}' "$WORK/cg.$name.$n1")"
  i2="$(awk '/^(summary|totals):/ {print $2; exit}' "$WORK/cg.$name.$n2")"
  echo "$name $(( (i2 - i1) / (10#$n2 - 10#$n1) ))"
}
export -f count_instructions
export BENCH WORK

if [ -n "$FILTER" ]; then
  run_bench "$FILTER" "$WORK/filter.json" --benchmark_repetitions="$REPETITIONS" >/dev/null
  SUMMARY_ONLY=1
  JSONS=("$WORK/filter.json")
  if [ "$CALLGRIND" = 1 ]; then
    for c in "${SMALL_CASES[@]}"; do
      if [[ "$c/" =~ $FILTER ]]; then count_instructions "$c"; fi
    done >"$WORK/instructions.txt"
  fi
else
  mkdir -p "$PERF_DIR"
  echo "bench: small cases" >&2
  run_bench "$SMALL_RE" "$PERF_DIR/small.json" --benchmark_repetitions="$REPETITIONS"
  echo "bench: large cases" >&2
  run_bench "$LARGE_RE" "$PERF_DIR/large.json"
  SUMMARY_ONLY=0
  JSONS=("$PERF_DIR/small.json" "$PERF_DIR/large.json")
  if [ "$CALLGRIND" = 1 ]; then
    echo "bench: instruction counts (callgrind)" >&2
    printf '%s\n' "${SMALL_CASES[@]}" | xargs -P "$JOBS" -I{} bash -c 'count_instructions {}' \
      | sort >"$PERF_DIR/instructions.txt"
    cp "$PERF_DIR/instructions.txt" "$WORK/instructions.txt"
  fi
fi
[ -f "$WORK/instructions.txt" ] || : >"$WORK/instructions.txt"

# ---- the machine -----------------------------------------------------------------
{
  echo "nproc=$(nproc)"
  echo "cpu=$(awk -F': ' '/^model name/ {print $2; exit}' /proc/cpuinfo)"
  echo "mem_total_kib=$(awk '/^MemTotal:/ {print $2}' /proc/meminfo)"
  echo "mem_available_kib=$avail_kib"
  echo "load=$(cut -d' ' -f1-3 /proc/loadavg)"
  echo "kernel=$(uname -r)"
  echo "compiler=$(c++ --version | head -1)"
  echo "libplist=$(pkg-config --modversion libplist-2.0 2>/dev/null || echo none)"
  echo "date=$(date -u +%Y-%m-%dT%H:%MZ)"
} >"$WORK/machine.txt"

# ---- the report --------------------------------------------------------------------
python3 - "$SUMMARY_ONLY" "$ROOT" "$PERF_DIR" "$WORK" "${JSONS[@]}" <<'PY'
import json, re, statistics, sys, pathlib

summary_only = sys.argv[1] == "1"
root, perf_dir, work = map(pathlib.Path, sys.argv[2:5])
jsons = sys.argv[5:]

# name -> list of per-repetition runs; the time of a run is its CPU time,
# except for cases timed by hand (/manual_time), whose "real" time is the
# CPU stopwatch's.
runs = {}
for path in jsons:
    for b in json.load(open(path))["benchmarks"]:
        if b.get("run_type") != "iteration" or b.get("error_occurred"):
            continue
        name = re.sub(r"/(manual_time|iterations:\d+|repeats:\d+)", "", b["name"])
        unit = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}[b["time_unit"]]
        t = b["real_time"] if "/manual_time" in b["name"] else b["cpu_time"]
        runs.setdefault(name, []).append(dict(b, seconds=t * unit))

def med(name, key="seconds"):
    r = runs.get(name)
    return statistics.median(x[key] for x in r) if r else None

instructions = {}
for line in open(work / "instructions.txt"):
    parts = line.split()
    if len(parts) == 2:
        instructions[parts[0]] = int(parts[1])

def fmt_time(s):
    if s is None: return "n/a"
    if s < 1e-6: return f"{s*1e9:.1f} ns"
    if s < 1e-3: return f"{s*1e6:.2f} µs"
    return f"{s*1e3:.1f} ms"

def fmt_ratio(a, b):
    return "n/a" if a is None or b in (None, 0) else f"{a/b:.2f}×"

def fmt_ir(name):
    v = instructions.get(name)
    return "" if v is None else f"{v:,}"

if summary_only:
    print(f"{'case':40} {'median CPU':>12} {'reps':>5} {'instructions':>14}")
    for name in sorted(runs):
        print(f"{name:40} {fmt_time(med(name)):>12} {len(runs[name]):>5} {fmt_ir(name):>14}")
    for name, v in sorted(instructions.items()):
        if name not in runs: print(f"{name:40} {'':>12} {'':>5} {v:>14,}")
    sys.exit(0)

machine = dict(l.rstrip("\n").split("=", 1) for l in open(work / "machine.txt"))
sections = {}

sections["machine"] = "\n".join([
    "| | |", "|---|---|",
    f"| Processors (nproc) | {machine['nproc']} |",
    f"| CPU model (/proc/cpuinfo) | {machine['cpu']} |",
    f"| Memory | {int(machine['mem_total_kib'])/1048576:.1f} GiB total, {int(machine['mem_available_kib'])/1048576:.1f} GiB available at the start |",
    f"| Load average at the end (1, 5, 15 min) | {machine['load']} |",
    f"| Kernel, compiler | {machine['kernel']}; {machine['compiler']} |",
    f"| Build | RelWithDebInfo (-O2 -g), libplist {machine['libplist']} |",
    f"| Run | {machine['date']}, small cases {len(runs.get('BM_Send_Text', []))} repetitions, large cases 3; medians |",
])

def row(cells): return "| " + " | ".join(cells) + " |"

# Small cases: time, reference, ratio, instructions.
def small_table(rows):
    out = [row(["Case", "Median CPU time", "Instructions", "Reference", "Reference time", "Ratio"]),
           row(["---"] * 6)]
    for label, name, ref_label, ref in rows:
        out.append(row([label, fmt_time(med(name)), fmt_ir(name), ref_label,
                        fmt_time(med(ref)) if ref else "", fmt_ratio(med(name), med(ref)) if ref else ""]))
    return "\n".join(out)

sections["send-small"] = small_table([
    ("Text share, sendReq to messenger opened", "BM_Send_Text", "libplist: build + encode the same item", "BM_Ref_Libplist_Text"),
    ("Text share, record + pasteboard write only", "BM_Send_Text_RecordOnly", "libplist: build + encode the same item", "BM_Ref_Libplist_Text"),
    ("libplist: build + encode the same item", "BM_Ref_Libplist_Text", "", None),
])
sections["answer"] = small_table([
    ("Record answer (2020 on the pasteboard)", "BM_Answer_Record", "libplist: decode the same item", "BM_Ref_Libplist_DecodeAnswer"),
    ("URL answer \"oauth\"", "BM_Answer_OAuthUrl", "uriparser: parse + split the query", "BM_Ref_Uriparser_OAuthUrl"),
    ("URL answer \"pay\"", "BM_Answer_PayUrl", "uriparser: parse + split the query", "BM_Ref_Uriparser_PayUrl"),
    ("Re-planting the record (inside the record case)", "BM_Answer_Fixture_Plant", "", None),
])
sections["logging"] = small_table([
    ("Send line, no sink", "BM_Log_NoSink", "formatting the line", "BM_Log_FormatOnly"),
    ("Send line, block sink", "BM_Log_BlockSink", "formatting the line", "BM_Log_FormatOnly"),
    ("Text share with a block sink", "BM_Send_Text_BlockSink", "text share without a sink", "BM_Send_Text"),
])
sections["coldstart"] = small_table([
    ("registerApp, first after relaunch", "BM_Cold_RegisterApp", "registerApp, warm", "BM_Warm_RegisterApp"),
    ("Text share, first after relaunch", "BM_Cold_FirstSend", "text share, warm", "BM_Warm_Send"),
])

# Large cases.
large = []
sizes = sorted({int(m.group(1)) for n in runs for m in [re.match(r"BM_Send_File/(\d+)$", n)] if m})
cases = [("Image share: 64 KiB thumbnail + 25 MiB image", "Image25MiB")] + \
        [(f"File share, {s} MiB" if s < 1024 else "File share, 1 GiB", f"File/{s}") for s in sizes]
out = [row(["Payload", "Kit: time", "Kit: peak", "Plain copy: time", "Kit / copy", "libplist: time", "libplist: peak",
            "Kit / libplist"]), row(["---"] * 8)]
plot = []
for label, key in cases:
    kit, ref_copy, ref_lib = f"BM_Send_{key}", f"BM_Ref_Copy_{key}", f"BM_Ref_Libplist_{key}"
    if kit not in runs: continue
    out.append(row([label, fmt_time(med(kit)), f"{med(kit, 'peak_x_payload'):.3f}× payload",
                    fmt_time(med(ref_copy)), fmt_ratio(med(kit), med(ref_copy)),
                    fmt_time(med(ref_lib)), f"{med(ref_lib, 'peak_x_payload'):.2f}× payload" if ref_lib in runs else "n/a",
                    fmt_ratio(med(kit), med(ref_lib))]))
    if key.startswith("File/"):
        mib = med(kit, "payload_MiB")
        plot.append((mib, med(kit) * 1e3, med(ref_lib) * 1e3, med(ref_copy) * 1e3,
                     med(kit, "peak_x_payload") * mib, med(ref_lib, "peak_x_payload") * mib,
                     med(ref_copy, "peak_x_payload") * mib))
sections["send-large"] = "\n".join(out)
thumb = "BM_Send_Image_ThumbnailDecode"
if thumb in runs and "BM_Send_Image25MiB" in runs:
    sections["send-large"] += (f"\n\nOf the image share, decoding the {int(med(thumb, 'thumb_bytes')):,}-byte thumbnail "
                               f"takes {fmt_time(med(thumb))}, {100 * med(thumb) / med('BM_Send_Image25MiB'):.0f} % of the share.")

with open(perf_dir / "send-large.dat", "w") as f:
    f.write("# payload_MiB kit_ms libplist_ms copy_ms kit_peak_MiB libplist_peak_MiB copy_peak_MiB\n")
    for p in plot: f.write(" ".join(f"{v:.4f}" for v in p) + "\n")

# Goals.
def verdict(ok): return "met" if ok else "**not met**"
goals = [row(["Goal", "Figure", "Reference in the same run", "Verdict"]), row(["---"] * 4)]
t = med("BM_Send_Text")
goals.append(row(["Text share ≤ 15 µs", fmt_time(t), f"libplist item alone {fmt_time(med('BM_Ref_Libplist_Text'))} ({fmt_ratio(t, med('BM_Ref_Libplist_Text'))})", verdict(t is not None and t <= 15e-6)]))
# The goals name the image share, 256 MiB and 1 GiB; they are checked for
# every size of the sweep.
for label, key in cases:
    kit, ref = f"BM_Send_{key}", f"BM_Ref_Copy_{key}"
    if kit not in runs or ref not in runs: continue
    r, p = med(kit) / med(ref), med(kit, "peak_x_payload")
    goals.append(row([f"{label}: time ≤ 1.3 × copy, peak ≤ 2.1 × payload", f"{r:.2f}× copy, peak {p:.3f}×",
                      f"plain copy {fmt_time(med(ref))}", verdict(r <= 1.3 and p <= 2.1)]))
for label, name, ref in [("Record answer ≤ 10 µs", "BM_Answer_Record", "BM_Ref_Libplist_DecodeAnswer"),
                         ("\"oauth\" URL answer ≤ 10 µs", "BM_Answer_OAuthUrl", "BM_Ref_Uriparser_OAuthUrl"),
                         ("\"pay\" URL answer ≤ 10 µs", "BM_Answer_PayUrl", "BM_Ref_Uriparser_PayUrl")]:
    v = med(name)
    goals.append(row([label, fmt_time(v), f"{fmt_time(med(ref))} ({fmt_ratio(v, med(ref))})", verdict(v is not None and v <= 10e-6)]))
n, f_ = med("BM_Log_NoSink"), med("BM_Log_FormatOnly")
goals.append(row(["No sink: the line is not formatted", fmt_time(n), f"formatting alone {fmt_time(f_)} ({fmt_ratio(n, f_)})",
                  verdict(n is not None and f_ and n < 0.05 * f_)]))
sections["goals"] = "\n".join(goals)

# Splice the sections into docs/performance.md.
doc_path = root / "docs" / "performance.md"
doc = doc_path.read_text()
for key, body in sections.items():
    pattern = re.compile(rf"(<!-- BEGIN GENERATED {re.escape(key)} -->\n).*?(<!-- END GENERATED {re.escape(key)} -->)", re.S)
    if not pattern.search(doc):
        print(f"bench: docs/performance.md has no section {key}", file=sys.stderr)
        continue
    doc = pattern.sub(lambda m: m.group(1) + body + "\n" + m.group(2), doc)
doc_path.write_text(doc)
print(sections["goals"])
PY

# ---- the plot ---------------------------------------------------------------------
if [ -z "$FILTER" ] && ! command -v gnuplot >/dev/null; then
  echo "bench: gnuplot not found; docs/perf/send-large.png not redrawn" >&2
elif [ -z "$FILTER" ] && [ -s "$PERF_DIR/send-large.dat" ]; then
  gnuplot <<EOF
set terminal pngcairo size 1100,460 font "sans,10" noenhanced
set output "$PERF_DIR/send-large.png"
set multiplot layout 1,2 title "File share on the simulated device: the kit against libplist and a plain copy (CPU time, medians)"
set logscale xy 2
set xlabel "payload (MiB)"
set grid
set key top left
set ylabel "time (ms)"
plot "$PERF_DIR/send-large.dat" using 1:2 with linespoints lw 2 title "kit: sendReq to messenger opened", \
     "" using 1:3 with linespoints lw 2 title "libplist: build + encode", \
     "" using 1:4 with linespoints lw 2 title "plain copy"
set ylabel "peak resident memory (MiB, payload included)"
plot "$PERF_DIR/send-large.dat" using 1:5 with linespoints lw 2 title "kit", \
     "" using 1:6 with linespoints lw 2 title "libplist", \
     "" using 1:7 with linespoints lw 2 title "plain copy", \
     "" using 1:(\$1*2.1) with lines dt 2 title "goal: 2.1 x payload"
unset multiplot
EOF
  echo "bench: wrote docs/performance.md, docs/perf/" >&2
fi

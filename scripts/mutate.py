#!/usr/bin/env python3
"""Mutation testing of the kit's own sources.

Makes small, single changes (mutants) to the kit's sources, rebuilds the test
binary incrementally for each, runs it, and records which tests kill the
mutant (fail, crash or time out).  The sample is seeded, so two runs with the
same seed on the same tree test the same mutants.

    python3 scripts/mutate.py                   # 300 mutants, seed 1
    python3 scripts/mutate.py --count 40 --seed 7 --report build-mutate/report.md
    python3 scripts/mutate.py --only util/Format.cc:172   # some mutants of the sample again
    python3 scripts/mutate.py --mutants docs/mutation/seed1-sample.txt   # a kept sample, on today's sources

The tree is always put back as it was: every mutated file is restored after
its mutant, and again on exit, on Ctrl-C and on SIGTERM.  The mutants are
built in their own build folder (default build-mutate/, a plain optimised
build without debug information, linked with lld or gold when available) so
the normal build is left alone.

Operators:
  cmp      flip a comparison (== !=, < >=, > <=, <= >, >= <)
  neg      negate an if condition
  logic    swap && and ||
  const    change an integer constant by one, or to zero
  call     delete a call statement
  bool     return the other boolean
  early    drop an early return (if (...) return ...;)

A mutant that does not compile is left out of the score.  A mutant is killed
when at least one test fails, the binary crashes, or it runs past the time
limit; a crash or time-out is credited to the tests that failed before it
and to the test that was running, and the binary runs again without that
test (twice at most) to find more.
"""

from __future__ import annotations

import argparse
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from dataclasses import dataclass, field
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DEFAULT_DIRS = ["api", "commands", "identity", "record", "transport", "model", "util", "qrauth", "webauth",
                "appinfo", "peer"]
TEST_TARGET = "mirelo_tests"


@dataclass
class Mutant:
    path: str
    line: int  # 1-based
    op: str
    before: str
    after: str

    def describe(self) -> str:
        return f"{self.path}:{self.line} [{self.op}] `{self.before.strip()}` -> `{self.after.strip()}`"


@dataclass
class Outcome:
    mutant: Mutant
    status: str  # killed, survived, invalid
    killers: list[str] = field(default_factory=list)
    seconds: float = 0.0


# ---- finding mutation sites ----

STRING_RE = re.compile(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'')
SKIP_LINE_RE = re.compile(r"^\s*(#|//|\*|/\*|static_assert|using |namespace |template|case |default:)")
CMP_RE = re.compile(r"(?<=[\w)\]] )(==|!=|<=|>=|<|>)(?= [\w(!*&\"'-])")
CMP_FLIP = {"==": "!=", "!=": "==", "<=": ">", ">=": "<", "<": ">=", ">": "<="}
LOGIC_RE = re.compile(r" (&&|\|\|) ")
INT_RE = re.compile(r"(?<![\w.])(\d+)(?![\w.'])")
BOOL_RE = re.compile(r"\breturn (true|false);")
CALL_RE = re.compile(r"^(\s*)([A-Za-z_][\w:]*(?:(?:\.|->)[A-Za-z_]\w*)*)\((.*)\);\s*$")
NOT_CALLS = {"return", "if", "while", "for", "switch", "sizeof", "static_cast", "assert", "delete", "throw"}
EARLY_RE = re.compile(r"^(\s*if \(.*\)) return\b[^;]*;\s*$")


def masked(line: str) -> str:
    """The line with string and character literals blanked, so operators
    inside them are never mutated.  Lengths are kept."""
    return STRING_RE.sub(lambda m: '"' + " " * (len(m.group(0)) - 2) + '"', line)


def if_condition_span(line: str) -> tuple[int, int] | None:
    """The span of the condition inside `if (...)` on one line."""
    start = line.find("if (")
    if start < 0:
        return None
    depth = 0
    for i in range(start + 3, len(line)):
        c = line[i]
        if c == "(":
            depth += 1
        elif c == ")":
            depth -= 1
            if depth == 0:
                return start + 4, i
    return None


def sites_in(path: Path, rel: str) -> list[Mutant]:
    out: list[Mutant] = []
    in_block_comment = False
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
        stripped = line.strip()
        if in_block_comment:
            if "*/" in stripped:
                in_block_comment = False
            continue
        if stripped.startswith("/*") and "*/" not in stripped:
            in_block_comment = True
            continue
        if not stripped or SKIP_LINE_RE.match(line) or "constexpr" in line or "[[" in line:
            continue
        code = masked(line.split("//")[0] if "//" in masked(line) else line)
        code_len = len(masked(line).split("//")[0])

        def add(op: str, start: int, end: int, replacement: str) -> None:
            if end > code_len:
                return
            out.append(Mutant(rel, number, op, line, line[:start] + replacement + line[end:]))

        for m in CMP_RE.finditer(code):
            # Leave template brackets and stream operators alone.
            if m.group(1) in ("<", ">") and ("template" in line or "<<" in line or ">>" in line):
                continue
            add("cmp", m.start(1), m.end(1), CMP_FLIP[m.group(1)])
        for m in LOGIC_RE.finditer(code):
            add("logic", m.start(1), m.end(1), "||" if m.group(1) == "&&" else "&&")
        span = if_condition_span(code)
        if span and span[1] > span[0]:
            cond = line[span[0]:span[1]]
            add("neg", span[0], span[1], f"!({cond})")
        for m in INT_RE.finditer(code):
            if line[:m.start()].rstrip().endswith("[") or "#" in line:
                continue
            value = int(m.group(1))
            if value > 1 << 30:
                continue
            add("const", m.start(1), m.end(1), str(value + 1) if value == 0 else "0")
        for m in BOOL_RE.finditer(code):
            add("bool", m.start(1), m.end(1), "false" if m.group(1) == "true" else "true")
        call = CALL_RE.match(code)
        if call and call.group(2).split("::")[-1].split(".")[-1].split("->")[-1] not in NOT_CALLS \
                and "=" not in code.split("(")[0] and not code.rstrip().endswith("});"):
            out.append(Mutant(rel, number, "call", line, call.group(1) + "(void)0;"))
        early = EARLY_RE.match(code)
        if early:
            out.append(Mutant(rel, number, "early", line, line[:early.end(1)] + " {}"))
    return out


DESCRIBED_RE = re.compile(r"^(\S+):(\d+) \[(\w+)\] `(.*)` -> `(.*)`$")


def read_kept(path: Path) -> list[tuple[str, int, str, str, str]]:
    """The mutants listed in `path`, one description per line as --list
    prints them: (file, line, operator, text before, text after)."""
    kept = []
    for text in path.read_text(encoding="utf-8").splitlines():
        described = DESCRIBED_RE.match(text.strip())
        if described:
            rel, line, op, before, after = described.groups()
            kept.append((rel, int(line), op, before, after))
    return kept


def kept_sample(kept: list[tuple[str, int, str, str, str]], sites: list[Mutant]) -> tuple[list[Mutant], list[str]]:
    """The kept mutants found again among today's sites by file, operator and
    text, at the nearest line.  Edits elsewhere in a file move lines but leave
    its mutants comparable.  Returns (found, descriptions no longer found)."""
    by_text: dict[tuple[str, str, str, str], list[Mutant]] = {}
    for m in sites:
        by_text.setdefault((m.path, m.op, m.before.strip(), m.after.strip()), []).append(m)
    found: list[Mutant] = []
    gone: list[str] = []
    for rel, line, op, before, after in kept:
        candidates = [m for m in by_text.get((rel, op, before, after), []) if m not in found]
        if not candidates:
            gone.append(f"{rel}:{line} [{op}] `{before}` -> `{after}`")
            continue
        found.append(min(candidates, key=lambda m: abs(m.line - line)))
    return found, gone


def all_sites(dirs: list[str]) -> list[Mutant]:
    sites: list[Mutant] = []
    for d in dirs:
        base = ROOT / d
        if not base.is_dir():
            continue
        for path in sorted(base.glob("*.cc")):
            sites.extend(sites_in(path, str(path.relative_to(ROOT))))
    return sites


# ---- building and running ----

class Tree:
    """Applies one mutant at a time and always puts the file back."""

    def __init__(self) -> None:
        self.saved: dict[Path, bytes] = {}

    def apply(self, m: Mutant) -> None:
        path = ROOT / m.path
        original = path.read_bytes()
        self.saved[path] = original
        lines = original.decode("utf-8").split("\n")
        assert lines[m.line - 1] == m.before, f"{m.path}:{m.line} changed since the sites were found"
        lines[m.line - 1] = m.after
        path.write_bytes("\n".join(lines).encode("utf-8"))

    def restore(self) -> None:
        for path, data in self.saved.items():
            path.write_bytes(data)
            # Make sure the next build sees the file as changed again.
            os.utime(path, None)
        self.saved.clear()


def run(cmd: list[str], timeout: float, **kw) -> tuple[int, float]:
    """Runs `cmd` in a process group of its own; on time-out the whole group
    is killed (a hanging test binary may have forked death-test children)."""
    start = time.monotonic()
    kw.setdefault("stdout", subprocess.DEVNULL)
    proc = subprocess.Popen(cmd, stderr=subprocess.DEVNULL, start_new_session=True, **kw)
    try:
        proc.wait(timeout=timeout)
        return proc.returncode, time.monotonic() - start
    except subprocess.TimeoutExpired:
        return -999, time.monotonic() - start
    finally:
        try:
            os.killpg(proc.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        proc.wait()


def configure(build: Path) -> None:
    if (build / "build.ninja").exists():
        return
    linker = []
    if shutil.which("ld.lld"):
        linker = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"]
    elif shutil.which("ld.gold"):
        linker = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold"]
    cmd = ["cmake", "-S", str(ROOT), "-B", str(build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
           "-DCMAKE_CXX_FLAGS_RELEASE=-O1", "-DMIRELO_BUILD_BENCH=OFF", "-DMIRELO_BUILD_TOOLS=OFF",
           *linker]
    if shutil.which("ccache"):
        cmd.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
    subprocess.run(cmd, check=True, stdout=subprocess.DEVNULL)


def build_tests(build: Path, timeout: float) -> bool:
    code, _ = run(["cmake", "--build", str(build), "--target", TEST_TARGET, "-j", str(os.cpu_count() or 2)],
                  timeout)
    return code == 0


RUN_LINE = re.compile(r"^\[ RUN      \] (\S+)", re.M)
END_LINE = re.compile(r"^\[ +(?:OK|FAILED|SKIPPED) +\] ([^\s,]+)", re.M)
FAILED_LINE = re.compile(r"^\[  FAILED  \] ([^\s,]+)[^\n]* \(\d+ ms\)$", re.M)


def run_binary(build: Path, timeout: float, json_path: Path, exclude: list[str]) -> tuple[bool, list[str], list[str],
                                                                                       str | None]:
    """One run of the test binary.  Returns (clean exit, failed tests,
    passed tests, the test that was running when the binary crashed or ran
    out of time)."""
    if json_path.exists():
        json_path.unlink()
    log = json_path.with_suffix(".log")
    binary = build / "tests" / TEST_TARGET
    env = dict(os.environ, GTEST_OUTPUT=f"json:{json_path}")
    args = [str(binary)]
    if exclude:
        args.append("--gtest_filter=-" + ":".join(exclude))
    with log.open("wb") as out:
        code, _ = run(args, timeout, env=env, cwd=build, stdout=out)
    failed: list[str] = []
    passed: list[str] = []
    if json_path.exists():
        try:
            report = json.loads(json_path.read_text())
            for suite in report.get("testsuites", []):
                for case in suite.get("testsuite", []):
                    name = f"{suite['name']}.{case['name']}"
                    if case.get("result") == "SKIPPED" or case.get("status") == "NOTRUN":
                        continue
                    (failed if case.get("failures") else passed).append(name)
        except (ValueError, KeyError):
            pass
        return code == 0, failed, passed, None
    # No report: the binary crashed or was stopped.  Its output tells which
    # tests failed before, and which one was running.
    text = log.read_text(errors="replace")
    failed = FAILED_LINE.findall(text)
    started = RUN_LINE.findall(text)
    ended = set(END_LINE.findall(text))
    culprit = next((t for t in reversed(started) if t not in ended), None)
    return False, failed, [], culprit


def test_results(build: Path, timeout: float, json_path: Path, reruns: int = 2) -> tuple[bool, list[str], list[str]]:
    """Runs the test binary.  Returns (clean exit, failed tests, passed
    tests).  When it crashes or runs out of time, the test that was running
    counts as failed and the binary runs again without it (at most `reruns`
    more times), so that a mutant that breaks many tests is credited to
    more than the first."""
    clean, failed, passed, culprit = run_binary(build, timeout, json_path, [])
    excluded: list[str] = []
    while not clean and culprit and len(excluded) < reruns:
        excluded.append(culprit)
        failed = sorted(set(failed) | {culprit})
        more_clean, more_failed, passed, culprit = run_binary(build, timeout, json_path, excluded)
        failed = sorted(set(failed) | set(more_failed))
        if more_clean:
            break
    if culprit:
        failed = sorted(set(failed) | {culprit})
    return clean, failed, passed


def all_test_names(build: Path) -> list[str]:
    out = subprocess.run([str(build / "tests" / TEST_TARGET), "--gtest_list_tests"], capture_output=True,
                         text=True, check=True).stdout
    names, suite = [], ""
    for line in out.splitlines():
        if not line.strip():
            continue
        if not line.startswith(" "):
            suite = line.split("#")[0].strip().rstrip(".")
        else:
            names.append(f"{suite}.{line.split('#')[0].strip()}")
    return names


# ---- the report ----

def write_report(path: Path, outcomes: list[Outcome], sample: str, tests: list[str], seconds: float) -> None:
    valid = [o for o in outcomes if o.status != "invalid"]
    killed = [o for o in valid if o.status == "killed"]
    score = 100.0 * len(killed) / len(valid) if valid else 0.0
    kills: dict[str, int] = {t: 0 for t in tests}
    unique: dict[str, int] = {t: 0 for t in tests}
    for o in killed:
        for t in o.killers:
            kills[t] = kills.get(t, 0) + 1
        if len(o.killers) == 1:
            unique[o.killers[0]] = unique.get(o.killers[0], 0) + 1
    lines = [
        "# Mutation report",
        "",
        f"- {sample}, {len(outcomes)} mutants, {len(outcomes) - len(valid)} did not compile",
        f"- mutation score: {score:.1f}% ({len(killed)} of {len(valid)} killed)",
        f"- run time: {seconds / 60:.1f} minutes",
        "",
        "## Survivors",
        "",
    ]
    lines += [f"- {o.mutant.describe()}" for o in valid if o.status == "survived"] or ["(none)"]
    lines += ["", "## Kills per test", "", "| test | kills | only killer |", "|---|---|---|"]
    for t in sorted(kills, key=lambda t: (-unique.get(t, 0), -kills[t], t)):
        lines.append(f"| {t} | {kills[t]} | {unique.get(t, 0)} |")
    lines += ["", "## Tests that kill nothing", ""]
    lines += [f"- {t}" for t in sorted(t for t in tests if kills.get(t, 0) == 0)] or ["(none)"]
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("\n".join(lines) + "\n")
    raw = path.with_suffix(".json")
    raw.write_text(json.dumps([{"mutant": o.mutant.describe(), "status": o.status, "killers": o.killers,
                                "seconds": round(o.seconds, 1)} for o in outcomes], indent=1))


def main() -> int:
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--count", type=int, default=300, help="mutants to sample")
    ap.add_argument("--build-dir", default="build-mutate")
    ap.add_argument("--build-timeout", type=float, default=900, help="seconds for one incremental build")
    ap.add_argument("--test-timeout", type=float, default=60, help="seconds for one run of the tests")
    ap.add_argument("--report", default=None, help="markdown report (default: <build-dir>/mutation-report.md)")
    ap.add_argument("--dirs", nargs="*", default=DEFAULT_DIRS)
    ap.add_argument("--list", action="store_true", help="only print the sampled mutants")
    ap.add_argument("--mutants", default=None,
                    help="run the mutants listed in this file (as --list prints them) instead of a new sample")
    ap.add_argument("--only", action="append", default=[],
                    help="run only the sampled mutants whose description contains this text (repeatable), "
                         "e.g. --only util/Format.cc:172")
    args = ap.parse_args()

    kept = read_kept(Path(args.mutants)) if args.mutants else []
    # A kept list may name folders outside the default ones (the ports, say).
    dirs = list(dict.fromkeys([*args.dirs, *(str(Path(k[0]).parent) for k in kept)]))
    sites = all_sites(dirs)
    if args.mutants:
        sample, gone = kept_sample(kept, sites)
        for text in gone:
            print(f"mutate: no longer in the sources: {text}", file=sys.stderr)
    else:
        rng = random.Random(args.seed)
        sample = rng.sample(sites, min(args.count, len(sites)))
    sample.sort(key=lambda m: (m.path, m.line))
    if args.only:
        sample = [m for m in sample if any(text in m.describe() for text in args.only)]
    if args.list:
        print(f"{len(sites)} sites; sampled {len(sample)}")
        for m in sample:
            print(m.describe())
        return 0

    build = (ROOT / args.build_dir).resolve()
    report = Path(args.report) if args.report else build / "mutation-report.md"
    tree = Tree()

    def on_signal(signum, _frame):
        tree.restore()
        sys.exit(128 + signum)

    signal.signal(signal.SIGINT, on_signal)
    signal.signal(signal.SIGTERM, on_signal)

    started = time.monotonic()
    outcomes: list[Outcome] = []
    try:
        configure(build)
        if not build_tests(build, args.build_timeout * 4):
            print("mutate: the unmutated tree does not build", file=sys.stderr)
            return 2
        clean, failed, _ = test_results(build, args.test_timeout, build / "mutate-baseline.json")
        if not clean or failed:
            print(f"mutate: the unmutated tree fails its tests: {failed[:5]}", file=sys.stderr)
            return 2
        tests = all_test_names(build)
        print(f"mutate: {len(sites)} sites, {len(sample)} sampled, {len(tests)} tests", flush=True)
        for i, m in enumerate(sample, start=1):
            t0 = time.monotonic()
            tree.apply(m)
            try:
                if not build_tests(build, args.build_timeout):
                    outcome = Outcome(m, "invalid")
                else:
                    clean, failed, passed = test_results(build, args.test_timeout, build / "mutate-run.json")
                    if failed:
                        outcome = Outcome(m, "killed", failed)
                    elif not clean:
                        outcome = Outcome(m, "killed", ["<crash>"])
                    else:
                        outcome = Outcome(m, "survived")
            finally:
                tree.restore()
            outcome.seconds = time.monotonic() - t0
            outcomes.append(outcome)
            print(f"[{i}/{len(sample)}] {outcome.status:8} {outcome.seconds:5.1f}s {m.describe()}", flush=True)
        label = f"the mutants of {args.mutants}" if args.mutants else f"seed {args.seed}"
        write_report(report, outcomes, label, tests, time.monotonic() - started)
        print(f"mutate: report in {report}")
    finally:
        tree.restore()
        # Leave the build matching the restored sources.
        build_tests(build, args.build_timeout * 4)
    return 0


if __name__ == "__main__":
    sys.exit(main())

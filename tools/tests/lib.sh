# Shared by the tool scripts: counters and the two kinds of check.
# shellcheck shell=bash
passed=0
failed=0
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
pass() { passed=$((passed + 1)); }
fail() { failed=$((failed + 1)); echo "FAIL: $*"; }

# check NAME COMMAND...: the command must succeed.
check() {
  local name="$1"
  shift
  if "$@"; then pass; else fail "$name"; fi
}

# status NAME EXPECTED-STATUS COMMAND...: stdout to $work/out, stderr to $work/err.
status() {
  local name="$1" expected="$2"
  shift 2
  "$@" >"$work/out" 2>"$work/err"
  local rc=$?
  if [[ $rc -eq $expected ]]; then pass; else fail "$name (exit $rc, want $expected: $(head -3 "$work/err"))"; fi
}

# refuses NAME EXPECTED-TEXT COMMAND...: exit status 1, nothing on stdout,
# exactly one line on stderr that contains EXPECTED-TEXT.
refuses() {
  local name="$1" expected="$2"
  shift 2
  "$@" >"$work/out" 2>"$work/err"
  local rc=$?
  local lines
  lines=$(wc -l <"$work/err")
  if [[ $rc -eq 1 && ! -s "$work/out" && $lines -eq 1 ]] && grep -qF -- "$expected" "$work/err"; then
    pass
  else
    fail "$name (exit $rc, stdout $(wc -c <"$work/out") bytes, stderr: $(cat "$work/err"))"
  fi
}

# has NAME TEXT FILE: FILE contains TEXT.
has() {
  if grep -qF -- "$2" "$3"; then pass; else fail "$1 (no \"$2\" in: $(head -c 400 "$3"))"; fi
}

# lacks NAME TEXT FILE: FILE does not contain TEXT.
lacks() {
  if grep -qF -- "$2" "$3"; then fail "$1 (\"$2\" shown)"; else pass; fi
}

finish() {
  echo "$passed passed, $failed failed"
  [[ $failed -eq 0 ]]
}

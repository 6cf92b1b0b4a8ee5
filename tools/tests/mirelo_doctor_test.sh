#!/usr/bin/env bash
# Drives the real mirelo-doctor binary as a user would: the printed lines,
# the JSON and the exit status.  Which finding each input gives is checked
# in-process (doctor_test.cc).
# Usage: mirelo_doctor_test.sh DIR-OF-THE-TOOLS DATA-DIR
set -u
tools="${1:?usage: $0 DIR-OF-THE-TOOLS DATA-DIR}"
data="${2:?usage: $0 DIR-OF-THE-TOOLS DATA-DIR}"
doctor="$tools/mirelo-doctor"
source "$(dirname "$0")/lib.sh"

app=mr0123456789abcdef
link=https://host.example.com/mirelo/

# --- A sound integration ----------------------------------------------------------
status "good: passes" 0 "$doctor" --info-plist "$data/Info-good.plist" --app-id "$app" --universal-link "$link" \
  --association "$data/aasa-covered.json" --team-id ABCDE12345
has "good: says so" "all checks passed (info-plist, registration, url-scheme, universal-link, association)" "$work/out"
status "good without a team id: passes with a note" 0 "$doctor" --info-plist "$data/Info-good.plist" --app-id "$app" \
  --universal-link "$link" --association "$data/aasa-covered.json"
has "good without a team id: the note" "note: no --team-id: any team with bundle id" "$work/out"

# --- Every problem, one line each with its fix ---------------------------------------
status "broken: fails" 1 "$doctor" --info-plist "$data/Info-broken.bplist" --app-id "$app" \
  --universal-link "http://host.example.com/mirelo/?from=doc"
has "broken: the kit's https text" \
  "registration: mrlog:Error:register fail, universal link must be https link! -- fix: " "$work/out"
has "broken: the kit's text, double blank kept" \
  "mrlog:Error:register fail,  Mirelo scheme(mireloULAPI) is not be added to LSApplicationQueriesSchemes in plist!" \
  "$work/out"
check "broken: five problem lines, each with a fix" test "$(grep -c ' -- fix: ' "$work/out")" -eq 5
has "broken: summary" "5 problems found" "$work/out"

status "association: an excluded answer path" 1 "$doctor" --info-plist "$data/Info-good.plist" --app-id "$app" \
  --universal-link "$link" --association "$data/aasa-paths-excluded.json" --team-id ABCDE12345 --json
if command -v python3 >/dev/null 2>&1; then
  check "association: --json names the path and the fix" python3 - "$work/out" <<'PY'
import json, sys
r = json.load(open(sys.argv[1]))
assert r["ok"] is False
[f] = r["findings"]
assert f["check"] == "association", f
assert "/mirelo/mr0123456789abcdef/pay" in f["problem"], f
assert '"/mirelo/*"' in f["fix"], f
assert r["passed"] == ["info-plist", "registration", "url-scheme", "universal-link"], r["passed"]
PY
fi

# --- Files and command line ----------------------------------------------------------
status "a missing Info.plist" 2 "$doctor" --info-plist "$work/none.plist" --app-id "$app" --universal-link "$link"
has "a missing Info.plist: one line" "No such file or directory" "$work/err"
status "an Info.plist that is no plist: bad input" 2 "$doctor" --info-plist "$data/aasa-covered.json" --app-id "$app" \
  --universal-link "$link"
status "no --app-id" 2 "$doctor" --info-plist "$data/Info-good.plist" --universal-link "$link"
status "--help" 0 "$doctor" --help
has "--help lists the checks" "association" "$work/out"

finish

#!/usr/bin/env bash
# mirelo-plist with XML property lists, run as a user would.  (The binary
# form has its own script beside the kit's tests.)
# Usage: mirelo_plist_xml_test.sh DIR-OF-THE-TOOLS DATA-DIR
set -u
tools="${1:?usage: $0 DIR-OF-THE-TOOLS DATA-DIR}"
data="${2:?usage: $0 DIR-OF-THE-TOOLS DATA-DIR}"
plist="$tools/mirelo-plist"
source "$(dirname "$0")/lib.sh"

# --- Reading and writing -----------------------------------------------------------
status "decode an Xcode-style Info.plist" 0 "$plist" decode "$data/Info-good.plist"
cp "$work/out" "$work/info.json"
has "decoded keys" '"CFBundleIdentifier": "com.example.host"' "$work/info.json"
has "decoded booleans" '"LSRequiresIPhoneOS": true' "$work/info.json"
status "encode it back as XML" 0 "$plist" encode --format xml "$work/info.json"
# The writer's layout is the platform's: the file again, byte for byte.
check "the XML is the file again, byte for byte" cmp -s "$work/out" "$data/Info-good.plist"

cat >"$work/types.json" <<'JSON'
{"text": "a < b & c > d", "real": 0.5, "int": -7, "big": 18446744073709551615, "no": false,
 "bytes": {"$data": "AAECAw=="}, "when": {"$date": 694224000.0}, "ref": {"$uid": 3},
 "inf": {"$real": "-inf"}, "list": [[], {}]}
JSON
status "every type as XML" 0 "$plist" encode --format xml "$work/types.json"
cp "$work/out" "$work/types.xml"
has "escaped text" "<string>a &lt; b &amp; c &gt; d</string>" "$work/types.xml"
has "a UID" "<key>CF\$UID</key>" "$work/types.xml"
# Interop with python's plistlib, both ways.
if command -v python3 >/dev/null 2>&1; then
  check "python's plistlib reads the XML" python3 - "$work/types.xml" <<'PY'
import datetime, math, plistlib, sys
p = plistlib.load(open(sys.argv[1], "rb"))
assert p["text"] == "a < b & c > d" and p["real"] == 0.5 and p["int"] == -7 and p["big"] == 2**64 - 1
assert p["no"] is False and p["bytes"] == b"\x00\x01\x02\x03"
assert p["when"] == datetime.datetime(2023, 1, 1), p["when"]
assert math.isinf(p["inf"]) and p["inf"] < 0 and p["list"] == [[], {}]
PY
  python3 - "$work/python.xml" <<'PY'
import plistlib, sys
value = {"z": [True, 1.5, -3, b"\xff" * 40, "\u4e2d & <"], "nested": {"k": list(range(3))}}
plistlib.dump(value, open(sys.argv[1], "wb"), fmt=plistlib.FMT_XML, sort_keys=False)
PY
  status "decode XML that python wrote" 0 "$plist" decode "$work/python.xml"
  check "python's values come through" python3 - "$work/out" <<'PY'
import json, sys
j = json.load(open(sys.argv[1]))
assert j["z"][:3] == [True, 1.5, -3] and j["z"][4] == "\u4e2d & <", j
assert j["z"][3] == {"$data": "/" * 53 + "w=="}, j["z"][3]
assert j["nested"] == {"k": [0, 1, 2]}
PY
fi

# --- Refusals -------------------------------------------------------------------------
printf '<plist><dict><key>a</key>\n<integer>x</integer></dict></plist>' >"$work/bad-int.xml"
refuses "an integer that is not one" "bad-int.xml: line 2: <integer> holds" "$plist" decode "$work/bad-int.xml"
# Hostile input: an external entity is never read.
printf '<!DOCTYPE plist [<!ENTITY x SYSTEM "file:///etc/hostname">]><plist><string>&x;</string></plist>' \
  >"$work/entity.xml"
refuses "an external entity is not read" "entity reference &x; is not allowed" "$plist" decode "$work/entity.xml"
# What encode writes, decode reads: a value deeper than XML carries is
# refused when written.
printf '%s' "$(printf '[%.0s' {1..300})1$(printf ']%.0s' {1..300})" >"$work/deep.json"
refuses "a value deeper than XML carries" "nesting is deeper than" "$plist" encode --format xml "$work/deep.json"
status "an unknown format is a usage error" 2 "$plist" encode --format yaml "$work/types.json"
status "--help names XML" 0 "$plist" --help
has "--help names XML" "--format xml" "$work/out"

finish

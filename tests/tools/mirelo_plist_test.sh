#!/usr/bin/env bash
# Drives the real mirelo-plist binary as a user would, with binary and XML
# property lists.
# Usage: mirelo_plist_test.sh DIR-CONTAINING-mirelo-plist
set -u
tool="${1:?usage: $0 DIR-CONTAINING-mirelo-plist}/mirelo-plist"
data="$(dirname "$0")/../../tools/tests/data"
source "$(dirname "$0")/../../tools/tests/lib.sh"

# In the tool's canonical JSON form, so decoding gives this text byte for byte.
cat >"$work/sample.json" <<'EOF'
{
  "appid": {
    "command": 1010,
    "title": "café 😀",
    "ratio": 1.0,
    "small": 0.0025,
    "negative": -9223372036854775808,
    "huge": 18446744073709551615,
    "ok": true,
    "fileData": {"$data": "AAECAw=="},
    "empty": {"$data": ""},
    "when": {"$date": 694224000.5},
    "ref": {"$uid": 300},
    "nothing": {"$real": "-inf"},
    "$$data": "a key that looks special",
    "list": [
      1,
      "two",
      [],
      {}
    ]
  },
  "old_text": "hello"
}
EOF

# --- Round trips --------------------------------------------------------------
check "encode a JSON file" "$tool" encode "$work/sample.json" >"$work/sample.bplist"
check "output is a bplist00 file" test "$(head -c 8 "$work/sample.bplist")" = "bplist00"
check "decode the encoded file" "$tool" decode "$work/sample.bplist" >"$work/decoded.json"
check "decoded JSON is the canonical text" diff -u "$work/sample.json" "$work/decoded.json"
"$tool" decode - <"$work/sample.bplist" >"$work/stdin.json"
check "decode - reads standard input" cmp -s "$work/decoded.json" "$work/stdin.json"
"$tool" encode - <"$work/sample.json" >"$work/stdin.bplist"
check "encode - reads standard input" cmp -s "$work/sample.bplist" "$work/stdin.bplist"

# --- Interop: python's plistlib reads what the tool writes (libplist: in the codec's tests)
if command -v python3 >/dev/null 2>&1; then
  check "python's plistlib reads what the tool writes" python3 - "$work/sample.bplist" <<'EOF'
import datetime, math, plistlib, sys
with open(sys.argv[1], "rb") as f:
    p = plistlib.load(f)
a = p["appid"]
assert p["old_text"] == "hello", p
assert a["title"] == "caf\u00e9 \U0001F600", a["title"]
assert a["command"] == 1010 and a["negative"] == -2**63 and a["huge"] == 2**64 - 1
assert a["ratio"] == 1.0 and isinstance(a["ratio"], float) and a["small"] == 0.0025
assert a["ok"] is True and a["fileData"] == b"\x00\x01\x02\x03" and a["empty"] == b""
assert a["when"] == datetime.datetime(2023, 1, 1, 0, 0, 0, 500000), a["when"]
assert a["ref"] == plistlib.UID(300) and math.isinf(a["nothing"]) and a["nothing"] < 0
assert a["$data"] == "a key that looks special"
assert a["list"] == [1, "two", [], {}]
assert list(a.keys())[:3] == ["command", "title", "ratio"]
EOF
fi

# --- XML -------------------------------------------------------------------------
status "decode an Xcode-style Info.plist" 0 "$tool" decode "$data/Info-good.plist"
cp "$work/out" "$work/info.json"
has "decoded keys" '"CFBundleIdentifier": "com.example.host"' "$work/info.json"
status "encode it back as XML" 0 "$tool" encode --format xml "$work/info.json"
# The writer's layout is the platform's: the file again, byte for byte.
check "the XML is the file again, byte for byte" cmp -s "$work/out" "$data/Info-good.plist"

cat >"$work/types.json" <<'JSON'
{"text": "a < b & c > d", "real": 0.5, "int": -7, "big": 18446744073709551615, "no": false,
 "bytes": {"$data": "AAECAw=="}, "when": {"$date": 694224000.0}, "ref": {"$uid": 3},
 "inf": {"$real": "-inf"}, "list": [[], {}]}
JSON
status "every type as XML" 0 "$tool" encode --format xml "$work/types.json"
cp "$work/out" "$work/types.xml"
has "escaped text" "<string>a &lt; b &amp; c &gt; d</string>" "$work/types.xml"
has "a UID" "<key>CF\$UID</key>" "$work/types.xml"
# Interop with python's plistlib, both ways: the only independent XML reader and writer here.
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
  status "decode XML that python wrote" 0 "$tool" decode "$work/python.xml"
  check "python's values come through" python3 - "$work/out" <<'PY'
import json, sys
j = json.load(open(sys.argv[1]))
assert j["z"][:3] == [True, 1.5, -3] and j["z"][4] == "\u4e2d & <", j
assert j["z"][3] == {"$data": "/" * 53 + "w=="}, j["z"][3]
assert j["nested"] == {"k": [0, 1, 2]}
PY
fi

# --- Refusals: status 1, one line naming the file and the problem -------------------
# (What the codecs refuse is tested with the codecs; these are the tool's paths.)
printf 'not a property list at all, just text' >"$work/text.bin"
refuses "decode of a text file" 'text.bin: not a binary property list' "$tool" decode "$work/text.bin"
refuses "decode of garbage on stdin" 'standard input: ' "$tool" decode - <"$work/text.bin"
: >"$work/empty"
refuses "decode of an empty file" 'no bytes' "$tool" decode "$work/empty"
refuses "decode of a missing file" 'No such file or directory' "$tool" decode "$work/missing.bplist"
refuses "decode of a directory" "$work: " "$tool" decode "$work"
printf '{"a": [1, 2' >"$work/cut.json"
refuses "encode of cut-off JSON" 'parse error' "$tool" encode "$work/cut.json"
printf 'null' | refuses "encode of a bare null" 'null value' "$tool" encode -
printf '<plist><dict><key>a</key>\n<integer>x</integer></dict></plist>' >"$work/bad-int.xml"
refuses "an XML integer that is not one" "bad-int.xml: line 2: <integer> holds" "$tool" decode "$work/bad-int.xml"
# Hostile input: an external entity is never read.
printf '<!DOCTYPE plist [<!ENTITY x SYSTEM "file:///etc/hostname">]><plist><string>&x;</string></plist>' \
  >"$work/entity.xml"
refuses "an external entity is not read" "entity reference &x; is not allowed" "$tool" decode "$work/entity.xml"
# What encode writes, decode reads: a value deeper than XML carries is
# refused when written.
printf '%s' "$(printf '[%.0s' {1..300})1$(printf ']%.0s' {1..300})" >"$work/deep.json"
refuses "a value deeper than XML carries" "nesting is deeper than" "$tool" encode --format xml "$work/deep.json"

# --- Command line -----------------------------------------------------------------
status "--help" 0 "$tool" --help
has "--help names both commands" 'decode' "$work/out"
has "--help documents the special objects" '"$data"' "$work/out"
has "--help names XML" "--format xml" "$work/out"
status "no command is a usage error" 2 "$tool"
status "a missing FILE is a usage error" 2 "$tool" decode
status "an unknown format is a usage error" 2 "$tool" encode --format yaml "$work/types.json"

finish

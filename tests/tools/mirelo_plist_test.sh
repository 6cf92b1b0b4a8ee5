#!/usr/bin/env bash
# Drives the real mirelo-plist binary as a user would.
# Usage: mirelo_plist_test.sh DIR-CONTAINING-mirelo-plist
set -u
tool="${1:?usage: $0 DIR-CONTAINING-mirelo-plist}/mirelo-plist"
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

# --- Interop with python's plistlib, both ways ------------------------------------
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

  python3 - "$work/python.bplist" <<'EOF'
import plistlib, sys
value = {"z": [True, 0.5, -3, 2**63, b"\xff" * 20, "\u4e2d\U0001F600"], "a": {"k": list(range(20))},
         "s": "x" * 300}
with open(sys.argv[1], "wb") as f:
    plistlib.dump(value, f, fmt=plistlib.FMT_BINARY, sort_keys=False)
EOF
  check "decode a file that python wrote" "$tool" decode "$work/python.bplist" >"$work/python.json"
  check "python's values come through" python3 - "$work/python.json" <<'EOF'
import json, sys
j = json.load(open(sys.argv[1]))
assert list(j.keys()) == ["z", "a", "s"], j.keys()
assert j["z"] == [True, 0.5, -3, 2**63, {"$data": "/" * 26 + "8="}, "\u4e2d\U0001F600"], j["z"]
assert j["a"]["k"] == list(range(20)) and j["s"] == "x" * 300
EOF
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

# --- Command line -----------------------------------------------------------------
status "--help" 0 "$tool" --help
has "--help names both commands" 'decode' "$work/out"
has "--help documents the special objects" '"$data"' "$work/out"
status "no command is a usage error" 2 "$tool"
status "a missing FILE is a usage error" 2 "$tool" decode

finish

#!/usr/bin/env bash
# Drives the real mirelo-inspect binary as a user would: the printed report,
# the exit status and the one-line refusals.  What each report holds is
# checked in-process (inspect_test.cc).
# Usage: mirelo_inspect_test.sh DIR-OF-THE-TOOLS DATA-DIR
set -u
tools="${1:?usage: $0 DIR-OF-THE-TOOLS DATA-DIR}"
inspect="$tools/mirelo-inspect"
plist="$tools/mirelo-plist"
source "$(dirname "$0")/lib.sh"

app=mr0123456789abcdef
token='s3cret/Token+value'

# --- The pasteboard item: an image share as the kit writes it ---------------
cat >"$work/item.json" <<JSON
{
  "$app": {"command": "1010", "returnFromApp": "0", "result": "1", "title": "Holiday", "objectType": "2",
    "fileData": {"\$data": "AAECAwQFBgcICQoLDA0ODxAREhM="}},
  "old_text": "the user's own text"
}
JSON
"$plist" encode "$work/item.json" >"$work/item.bin"
status "pasteboard: decodes" 0 "$inspect" pasteboard "$work/item.bin"
has "pasteboard: command by number and name" "command: 1010 (media message)" "$work/out"
has "pasteboard: data by size and hex prefix" \
  "imageData (fileData): 20 bytes, 000102030405060708090a0b0c0d0e0f..." "$work/out"
has "pasteboard: what the kit delivers" "class: ShowMessageFromMRReq" "$work/out"
status "pasteboard: standard input" 0 "$inspect" pasteboard - <"$work/item.bin"
has "pasteboard: standard input decodes" "appId: $app" "$work/out"
"$plist" encode --format xml "$work/item.json" >"$work/item.xml"
status "pasteboard: an XML item, --json after the file" 0 "$inspect" pasteboard "$work/item.xml" --json
has "pasteboard: XML format named" '"format": "XML property list"' "$work/out"

# --- URLs: the token shows only as its digest ------------------------------------
escaped_token='s3cret%2FToken%2Bvalue'
digest=$(printf '%s' "$token" | sha256sum | cut -c1-16)
launch="https://open.mirelo.app/app/$app/sendreq/?mirelo_auth_token=$escaped_token&mirelo_auth_context_id=cid42"
status "url: a launch by universal link" 0 "$inspect" url "$launch"
has "url: launch command" "request: SendMessageToMRReq" "$work/out"
has "url: token as its digest" "sha256Prefix: $digest" "$work/out"
lacks "url: the token itself never shows" "s3cret" "$work/out"
status "url: --json of the launch" 0 "$inspect" --json url "$launch"
lacks "url: the token never shows in JSON" "s3cret" "$work/out"
status "url: a scheme launch with the degrade mark" 0 \
  "$inspect" url "mirelo://app/$app/sendreq/?mirelo_degrade_launch_by_scheme=1"
has "url: degraded" "degraded: true" "$work/out"
status "url: an answer by scheme" 0 "$inspect" url "$app://oauth?code=abc&state=one+two"
has "url: answer handler" "handler: handleAuthOpenUrl" "$work/out"
answer="https://host.example.com/mirelo/$app/refreshToken?mirelo_auth_token=$escaped_token"
status "url: an answer by universal link" 0 "$inspect" url --universal-link https://host.example.com/mirelo "$answer"
has "url: the host's link as base" "prefix: https://host.example.com/mirelo/" "$work/out"
has "url: the answer's token digest" "sha256Prefix: $digest" "$work/out"
lacks "url: no token in the answer's report" "s3cret" "$work/out"

# --- Bad input: one line, status 1 -------------------------------------------------
head -c 40 "$work/item.bin" >"$work/truncated.bin"
refuses "pasteboard: truncated" "truncated.bin: not a property list" "$inspect" pasteboard "$work/truncated.bin"
refuses "pasteboard: missing file" "No such file or directory" "$inspect" pasteboard "$work/missing.bin"
refuses "url: not a URL" "not a URL" "$inspect" url "not a url?mirelo_auth_token=s3cret"
lacks "url: a refused URL's token is not echoed" "s3cret" "$work/err"
refuses "keychain: not a plist" "truncated.bin: not a property list" "$inspect" keychain "$work/truncated.bin"

# --- Command line ---------------------------------------------------------------------
status "--help" 0 "$inspect" --help
has "--help names the commands" "pasteboard FILE" "$work/out"
status "no command is a usage error" 2 "$inspect"
status "url without a URL is a usage error" 2 "$inspect" url

finish

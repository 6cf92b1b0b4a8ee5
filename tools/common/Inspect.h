// What travels between a host app and the messenger, decoded for people:
// the pasteboard item, launch and answer URLs, and the keychain token item.
//
// Each inspector returns a report (see Report.h) or, for input it cannot
// decode, a one-line reason.  Tokens never appear in a report: only the
// first digits of their SHA-256, which the kit also logs in full when it
// stores a token ("token sha256:..."), so the two can be matched.
#pragma once

#include <string>
#include <string_view>

#include "mirelo/Data.h"
#include "tools/common/Report.h"

namespace mirelo::tooling {

struct InspectResult {
  bool ok = false;
  std::string error;  // one line, when !ok
  Json report;
};

// A pasteboard "content" item: a property list (binary as the kit writes
// it, or XML) of {app id: record, "old_text": text}.  Shows the app id,
// "old_text", every header field of each record as written and as the kit
// reads it, the command by number and name, the body (media object fields
// by their class's names) and what the kit would deliver from it.
InspectResult inspectPasteboard(const Data& item);

struct UrlOptions {
  // The host's app id and universal link, when known: they make an answer
  // that comes back through the universal link unambiguous.
  std::string appId;
  std::string universalLink;
};

// A launch URL (the messenger's scheme or universal link) or an answer URL
// (the host's scheme or universal link): base, app id, command, every query
// parameter unescaped, token (as its SHA-256 prefix), context id, bundle id
// and degrade mark.
InspectResult inspectUrl(std::string_view url, const UrlOptions& options = {});

// A keychain token item: either the item's value (the keyed archive of the
// token's bytes) or the whole item as an attribute dictionary (class,
// service, account, accessibility and the value under "v_Data"), in a
// binary or XML property list.
InspectResult inspectKeychain(const Data& item);

}  // namespace mirelo::tooling

// The messenger's own URL handling: percent escaping and unescaping, query
// parsing and the reading of the launch URLs that host apps open.
//
// Written from the protocol alone and on purpose separate from the kit's
// URL code, so that a mistake in one shows up as a mismatch with the other.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mirelo/Value.h"

namespace mirelo::sim::peer {

// Percent-decodes %HH sequences (either case).  A "+" stays a "+".  An
// escape that is not two hex digits stays as it is and sets `*bad`.
std::string percentDecode(std::string_view text, bool* bad = nullptr);

// Escapes every byte except the unreserved characters A-Z a-z 0-9 - . _ ~.
std::string escapeAll(std::string_view text);

// Escapes only what would break a URL or its query: controls, space, DEL,
// the characters " < > \ ^ ` { | } and % & = # (everything else, non-ASCII
// text included, stays as it is).  For values that the host reads without
// unescaping.
std::string escapeMinimal(std::string_view text);

// One key=value piece of a query as written in the URL.
struct QueryPiece {
  std::string rawKey;
  std::string rawValue;
  bool hasEquals = false;
};

// Splits a raw query at every "&" (empty pieces are dropped and noted) and
// each piece at its first "=".
std::vector<QueryPiece> splitQuery(std::string_view raw, std::vector<std::string>* notes);

// Decodes the pieces into a dictionary of strings; a later duplicate
// replaces the earlier value.  Oddities go to `notes`.
Dictionary decodeQuery(const std::vector<QueryPiece>& pieces, std::vector<std::string>* notes);

// True when `text` begins with `prefix`, ASCII letters compared ignoring case.
bool startsWithIgnoringCase(std::string_view text, std::string_view prefix);

}  // namespace mirelo::sim::peer

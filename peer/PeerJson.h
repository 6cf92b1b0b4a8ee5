// The messenger's own small JSON reader and writer, for the card and
// invoice lists and the query documents that travel in URLs.
#pragma once

#include <string>
#include <string_view>

#include "mirelo/Value.h"

namespace mirelo::sim::peer {

// Parses one JSON document (surrounding white space allowed).  Objects
// become dictionaries (key order kept), arrays arrays, integral numbers
// integers, other numbers reals, null a null Value.  False, with `*error`
// set, for malformed text or nesting deeper than 256.
bool parseJson(std::string_view text, Value* out, std::string* error = nullptr);

// Compact JSON of `value`.  Data is written as a string of lower-case hex;
// a date as its seconds since 2001.
std::string writeJson(const Value& value);

}  // namespace mirelo::sim::peer

// The JSON form of property-list values, used by the mirelo-plist tool and
// by tests:
//   dictionary -> object, array -> array, string -> string,
//   boolean -> true/false, integer -> integer,
//   real -> number always written with a decimal point or an exponent,
//   data -> {"$data": "<standard Base64>"},
//   date -> {"$date": <seconds since 2001-01-01T00:00:00Z>},
//   UID -> {"$uid": <integer>}, null -> null.
// Reading maps back: a JSON number is a real exactly when its text carries a
// decimal point or an exponent.  Non-finite reals, which JSON cannot hold,
// are written as {"$real": "inf" | "-inf" | "nan"} (also inside "$date").
// A dictionary key made of one or more '$' followed by data, date, uid or
// real is written with one more '$' and read back without it, so that such a
// key is never taken for a special object.
#pragma once

#include <string>

#include "mirelo/Value.h"

namespace mirelo::plistjson {

// Pretty-printed JSON text of `value` (2-space indent, keys in dictionary order).
std::string toJson(const Value& value);

// The value of JSON `text`; a null Value with `*error` set when the text is
// not JSON or a special object ("$data", "$date", "$uid") is malformed.
// Never throws.
Value fromJson(const std::string& text, std::string* error = nullptr);

}  // namespace mirelo::plistjson

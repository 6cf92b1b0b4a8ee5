// XML property lists for the command-line tools, read with libxml2, and a
// reader that takes either format.
//
// The XML form is the platform's "plist version 1.0" document:
//   dictionary -> <dict> with <key> before each value, array -> <array>,
//   string -> <string>, integer -> <integer> (decimal, or 0x hex on input),
//   real -> <real> (nan, +infinity, -infinity for the non-finite ones),
//   boolean -> <true/> / <false/>, data -> <data> (Base64, white space
//   allowed on input), date -> <date>YYYY-MM-DDTHH:MM:SSZ</date>,
//   UID -> <dict><key>CF$UID</key><integer>N</integer></dict>.
//
// Dates carry whole seconds in XML: writing drops any fraction (towards the
// past).  Reading treats the text as hostile: no network, no DTD loading, no
// entity expansion beyond the five predefined ones and character references.
// Nesting is limited to kMaxXmlDepth levels both ways, below the binary
// format's bplist::kMaxDepth: libxml2 refuses deeper documents, so a value
// that deep is refused when written rather than written unreadable.
// Nothing here throws.
#pragma once

#include <string>
#include <string_view>

#include "mirelo/Data.h"
#include "mirelo/Value.h"

namespace mirelo::tooling {

enum class PlistFormat { Binary, Xml };

// The deepest XML property list written or read, in value levels: a scalar
// at the top is level 1, each array or dictionary adds one.  With the
// <plist> element and the innermost <key> this keeps the document within
// libxml2's 256 nested elements.
inline constexpr int kMaxXmlDepth = 254;

// The XML document of `value`; "" with `*error` set when it cannot be
// written (a null value, a string XML cannot carry, a date out of range).
std::string encodeXmlPlist(const Value& value, std::string* error = nullptr);

// The value of an XML property-list document; a null Value with `*error`
// naming what is wrong (with its line) for anything else.
Value decodeXmlPlist(std::string_view text, std::string* error = nullptr);

// True when the bytes start (after a byte-order mark and white space) with
// "<": the tools then read them as XML, anything else as binary.
bool looksLikeXml(std::string_view bytes);

// "YYYY-MM-DDTHH:MM:SSZ" of a property-list date, in whole seconds (a
// fraction is dropped towards the past); "" when the date is not finite or
// falls outside the years 1 to 9999.
std::string plistDateText(double secondsSince2001);

// Decodes a property list in either format, telling which in `*format`.
// Binary errors are the kit codec's own texts.
Value decodePropertyList(const Data& bytes, std::string* error = nullptr, PlistFormat* format = nullptr);

}  // namespace mirelo::tooling

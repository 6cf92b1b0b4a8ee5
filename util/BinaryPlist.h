// The kit's own binary property-list codec (bplist00, the binary format
// version 1.0).
//
// Encoding writes every value type the format has, including UIDs; the
// output is allocated once at its exact size, so a large data payload is
// copied exactly once.  Decoding treats its input as hostile: every offset,
// count, size and reference is checked before use, reference cycles and
// nesting deeper than kMaxDepth are refused, nothing is allocated from a
// claimed size before the bytes behind it are known to exist, and data
// objects are returned as slices of the input (no copy).  Neither throws.
//
// Details of the mapping:
//   - Encoding writes ASCII strings as ASCII objects and every other string
//     as UTF-16 (surrogate pairs outside the BMP); a string that is not
//     valid UTF-8 is refused.  Integers take the platform writer's widths:
//     non-negative values 1, 2, 4 or 8 bytes, negative values 8 bytes, and
//     unsigned values above INT64_MAX 16 bytes.  Reals are always 8 bytes.
//     Objects are not shared: equal values are written once each.  When a
//     data payload is 1 MiB or more, the output is a view into a buffer up
//     to 4 KiB larger, placed so that the payload keeps its source's offset
//     within a memory page (that copy runs at full memory speed).
//   - Decoding reads sets as arrays, 4-byte reals as reals, and 16-byte
//     integers that fit in 64 bits.  The null (0x00) and fill (0x0F) markers
//     are not property-list values and are refused, as are non-string
//     dictionary keys, non-ASCII bytes in ASCII strings and lone surrogates.
//     A later duplicate dictionary key replaces the earlier value.
//   - Objects may be shared by several containers.  So that a small file
//     cannot describe an enormous tree, decoding refuses input that expands
//     to more than 16 x objects + input size + 65536 values, or to more than
//     16 x input size + 1 MiB bytes of strings.
#pragma once

#include <string>

#include "mirelo/Data.h"
#include "mirelo/Value.h"

namespace mirelo::bplist {

inline constexpr int kMaxDepth = 512;

// Encodes `value`.  Null Data, with `*error` set, when the value cannot be
// encoded (a null Value at the top or inside a container).
Data encode(const Value& value, std::string* error = nullptr);

// Decodes bplist00 bytes.  A null Value, with `*error` naming what is wrong,
// for any malformed input.
Value decode(const Data& bytes, std::string* error = nullptr);

}  // namespace mirelo::bplist

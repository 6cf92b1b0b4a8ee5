// The binary property-list decoder: any bytes decode or are refused with a
// reason, and whatever decodes encodes again and reads back the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "mirelo/Data.h"
#include "mirelo/Value.h"
#include "util/BinaryPlist.h"

namespace mirelo::fuzz {

inline std::string runBplist(const std::uint8_t* data, std::size_t size) {
  const Data input = Data::copy(data, size);
  std::string error;
  const Value value = bplist::decode(input, &error);
  if (value.isNull()) return error.empty() ? "refused without a reason" : std::string();
  // Logging prints what was read, in bounded space.
  if (value.description().size() > (std::size_t{2} << 20) + 8 * size) return "the description outgrows the input";
  std::string encodeError;
  const Data encoded = bplist::encode(value, &encodeError);
  if (encoded.isNull()) return "a decoded value does not encode: " + encodeError;
  const Value back = bplist::decode(encoded, &error);
  if (back.isNull()) return "the codec's own output does not decode: " + error;
  if (!(bplist::encode(back) == encoded)) return "decoding the codec's own output gives another value";
  return std::string();
}

}  // namespace mirelo::fuzz

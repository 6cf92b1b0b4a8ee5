// A kit value as a libplist node, so that tests and benchmarks can hold the
// kit's codec against libplist's.  Include only where libplist is linked
// (MIRELO_HAVE_LIBPLIST).  The caller frees the node with plist_free; null
// for a null value.
#pragma once

#include <plist/plist.h>

#include <cmath>
#include <cstdint>

#include "mirelo/Data.h"
#include "mirelo/Value.h"

namespace mirelo::testing {

inline plist_t toPlist(const Value& v) {
  switch (v.type()) {
    case Value::Type::Bool: return plist_new_bool(*v.asBool() ? 1 : 0);
    case Value::Type::Int: return plist_new_uint(static_cast<std::uint64_t>(*v.asInt()));
    case Value::Type::UInt: return plist_new_uint(*v.asUInt());
    case Value::Type::Real: return plist_new_real(*v.asReal());
    case Value::Type::String: return plist_new_string(v.asString()->c_str());
    case Value::Type::Data: {
      const Data& d = *v.asData();
      return plist_new_data(reinterpret_cast<const char*>(d.bytes()), d.size());
    }
    case Value::Type::Date: {
      const double s = v.asDate()->secondsSince2001;
      const double whole = std::floor(s);
      return plist_new_date(static_cast<std::int32_t>(whole), static_cast<std::int32_t>((s - whole) * 1e6));
    }
    case Value::Type::Uid: return plist_new_uid(v.asUid()->value);
    case Value::Type::Array: {
      plist_t a = plist_new_array();
      for (const Value& e : *v.asArray()) plist_array_append_item(a, toPlist(e));
      return a;
    }
    case Value::Type::Dictionary: {
      plist_t d = plist_new_dict();
      for (const auto& [k, e] : *v.asDictionary()) plist_dict_set_item(d, k.c_str(), toPlist(e));
      return d;
    }
    case Value::Type::Null: break;
  }
  return nullptr;
}

}  // namespace mirelo::testing

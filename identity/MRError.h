// The error object of the token store: a domain, a code and a user-info
// dictionary that holds the localized description when there is one.
#pragma once

#include <cstdint>
#include <string>

#include "mirelo/String.h"
#include "mirelo/Value.h"
#include "util/Format.h"

namespace mirelo {

// The user-info key of the localized description (the platform's value of
// the key).
inline constexpr const char* NSLocalizedDescriptionKey = "NSLocalizedDescription";

struct MRError {
  String domain;
  std::int64_t code = 0;
  // Holds NSLocalizedDescriptionKey only when a description was given.
  Dictionary userInfo;

  // The description from userInfo, or the platform's generic text when
  // there is none.
  String localizedDescription() const {
    const String given = userInfo.mrApi_stringForKey(NSLocalizedDescriptionKey);
    if (!given.isNull()) return given;
    return String(format("The operation couldn\xE2\x80\x99t be completed. (%@ error %lld.)", domain, code));
  }

  std::string description() const {
    return format("Error Domain=%@ Code=%lld \"%@\" UserInfo=%@", domain, code, localizedDescription(),
                  Value(userInfo));
  }
};

}  // namespace mirelo

// The keyed-archive decoder, read as the kit reads archives: the root object
// (the keychain's token archive is an NSData root) and the two display-data
// records.  A malformed archive raises with a description; a sound one is
// read back the same after writing it again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "appinfo/AppRegisterInfo.h"
#include "mirelo/Data.h"
#include "util/KeyedArchive.h"

namespace mirelo::fuzz {

inline std::string runKeyedArchive(const std::uint8_t* data, std::size_t size) {
  const Data input = Data::copy(data, size);
  {
    const KeyedUnarchiver coder(input);
    if (coder.raised()) {
      if (coder.exceptionDescription().empty()) return "raised without a description";
      if (!coder.rootIsNil() || !coder.rootObject().isNull()) return "a raised archive still answers a root";
    } else {
      (void)coder.rootIsKindOf("NSData");
      (void)coder.rootClassName().description();
      for (const char* key : {"appID", "NS.data", "flag", "added", "$class", "appInfoVer"}) {
        (void)coder.decodeObject(key);
        (void)coder.decodeString(key);
        (void)coder.decodeInt32(key);
        (void)coder.decodeInteger(key);
        (void)coder.decodeBool(key);
        (void)coder.containsValue(key);
      }
      // A plain root is written again as the same plain root.
      const Value& root = coder.rootObject();
      Data again;
      if (const Data* bytes = root.asData()) again = KeyedArchiver::archivedDataWithRootObject(*bytes);
      if (root.isString()) again = KeyedArchiver::archivedDataWithRootObject(root.stringValue());
      if (!again.isNull()) {
        const KeyedUnarchiver reread(again);
        if (reread.raised()) return "a root written again does not read: " + reread.exceptionDescription();
        if (!(reread.rootObject() == root)) return "a root written again reads as another value";
      }
    }
  }

  std::string error;
  if (const auto info = AppRegisterInfo::unarchive(input, &error)) {
    (void)info->description();
    const Data archived = info->archive();
    if (archived.isNull()) return "a record read from an archive cannot be written again";
    const auto reread = AppRegisterInfo::unarchive(archived, &error);
    if (!reread) return "a record written again does not read: " + error;
    if (!(reread->archive() == archived)) return "a record written again reads as another record";
  } else if (error.empty()) {
    return "a record was refused without a reason";
  }
  error.clear();
  if (const auto item = AppSettingItem::unarchive(input, &error)) {
    const Data archived = item->archive();
    if (archived.isNull()) return "a setting read from an archive cannot be written again";
    const auto reread = AppSettingItem::unarchive(archived, &error);
    if (!reread) return "a setting written again does not read: " + error;
    if (!(reread->archive() == archived)) return "a setting written again reads as another setting";
  } else if (error.empty()) {
    return "a setting was refused without a reason";
  }
  return std::string();
}

}  // namespace mirelo::fuzz

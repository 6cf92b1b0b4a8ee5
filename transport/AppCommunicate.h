// The pasteboard store: the only code that touches the general pasteboard's
// "content" item, where an app data record travels between the host and the
// messenger.
//
// The item is one binary property list of a dictionary holding the record's
// property list under the app id and, when the user had text on the
// pasteboard at the moment of writing, that text under "old_text".  Each
// write replaces the item (and with it any other app's record); each read
// clears it and puts the user's text back.
#pragma once

#include <memory>
#include <optional>

#include "mirelo/String.h"
#include "mirelo/Value.h"
#include "mirelo/platform/Platform.h"
#include "record/AppCommunicateData.h"

namespace mirelo {

class AppCommunicate {
 public:
  AppCommunicate() = delete;

  // The pasteboard type of the item.
  static constexpr const char* kPasteboardType = "content";
  // The key of the user's saved pasteboard text.
  static constexpr const char* kOldTextKey = "old_text";

  // "mirelo_data".  The store itself always uses the general pasteboard.
  static String getDataPasteboardName();
  // The general pasteboard.
  static std::shared_ptr<platform::Pasteboard> getDataPasteboard();

  // The decoded item as a dictionary, or nullopt.  Once the item decodes,
  // it is cleared, whatever it holds, and the saved user text is restored.
  static std::optional<Dictionary> propertyListForAllApp();
  // The object stored under `appId`, or a null Value.  Clears the item.
  static Value propertyListForAppID(const String& appId);
  // Writes `plist` under `appId`, with the user's text under "old_text".
  static bool setPropertyList(const Value& plist, const String& appId);
  static bool setPropertyList(Value&& plist, const String& appId);
  // Writes the record's property list under `appId`.  Refuses a null or
  // empty app id and a null record.
  static bool setAppCommunicateData(const std::shared_ptr<AppCommunicateData>& data, const String& appId);
  // The record stored under `appId`, with its fileData taken from the
  // property list's "fileData" when that is data; nullptr when there is
  // none.  Clears the item.
  static std::shared_ptr<AppCommunicateData> appCommunicateDataForAppID(const String& appId);
};

}  // namespace mirelo

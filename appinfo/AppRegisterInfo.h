// Display data of an app known to the messenger side (AppRegisterInfo) and
// the user's setting for an app (AppSettingItem).  Nothing in the kit makes
// or reads them; they exist so that keyed archives written under these keys
// stay readable.  The archive keys are irregular on purpose ("added",
// "description", "appurl", "needUpdateWaterMark", the all-lower-case ones)
// and must not be "fixed".
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "util/KeyedArchive.h"

namespace mirelo {

class AppSettingItem {
 public:
  String appID;
  String openID;
  std::uint32_t flag = 0;
  bool appAddedByUser = false;

  // Writes "appID", "openID", "flag" (32-bit) and "appAddedByUser", in that
  // order.
  void encodeWithCoder(KeyedArchiver& coder) const;
  // Reads the same keys; an absent key leaves nil, 0 or NO.
  static AppSettingItem initWithCoder(const KeyedUnarchiver& coder);

  // A keyed archive whose root is this item; null Data when a string is not
  // valid UTF-8.
  Data archive() const;
  // The item archived in `data`; nullopt (with `*error`) when the archive is
  // malformed or its root is not an AppSettingItem.
  static std::optional<AppSettingItem> unarchive(const Data& data, std::string* error = nullptr);
};

class AppRegisterInfo {
 public:
  bool appAddedByUser = false;
  String appID;
  String appIdentifier;
  String appName;
  String appName4ZhTw;
  String appName4EnUs;
  String appDescription;
  String appDescription4EnUs;
  String appDescription4ZhTw;
  String appInstallUrl;
  bool needUpdateInfo = false;
  bool needUpdateIcon = false;
  bool needUpdateWatermark = false;
  std::uint64_t appInfoVer = 0;
  String appIconUrl;
  String appWatermarkUrl;
  std::uint32_t lastUpdateInfoTime = 0;
  std::uint32_t lastUpdateWatermarkTime = 0;
  std::uint32_t lastUpdateIconTime = 0;
  String appTypeList;
  String appDevInfo;
  std::uint32_t appInfoFlag = 0;
  std::uint32_t appUpdateVersion = 0;
  bool appCanShowNew = false;
  bool isNewApp = false;
  String appDownloadUrl;
  String appDownloadUrlMD5;
  std::uint32_t nextUpdateInfoTime = 0;
  // Kept in memory only; never archived.
  std::uint32_t rankWeight = 0;

  // "{ name:<appName> appid:<appID>}"
  std::string description() const;

  // Writes every archived property in its fixed order.
  void encodeWithCoder(KeyedArchiver& coder) const;
  // Reads every archived key; an absent key leaves nil, 0 or NO.
  static AppRegisterInfo initWithCoder(const KeyedUnarchiver& coder);

  // A keyed archive whose root is this record; null Data when a string is
  // not valid UTF-8.
  Data archive() const;
  // The record archived in `data`; nullopt (with `*error`) when the archive
  // is malformed or its root is not an AppRegisterInfo.
  static std::optional<AppRegisterInfo> unarchive(const Data& data, std::string* error = nullptr);
};

}  // namespace mirelo

#include "appinfo/AppRegisterInfo.h"

#include <vector>

#include "util/Format.h"

namespace mirelo {

namespace {

const std::vector<std::string>& settingItemClasses() {
  static const std::vector<std::string> classes{"AppSettingItem", "NSObject"};
  return classes;
}

const std::vector<std::string>& registerInfoClasses() {
  static const std::vector<std::string> classes{"AppRegisterInfo", "NSObject"};
  return classes;
}

// Opens `data` and checks that its root is a record of `className`.
bool openRecord(const KeyedUnarchiver& coder, const char* className, std::string* error) {
  if (coder.raised()) {
    if (error) *error = coder.exceptionDescription();
    return false;
  }
  if (!coder.rootIsKindOf(className)) {
    if (error) *error = format("the archive's root is of class %@, not %@", coder.rootClassName(), className);
    return false;
  }
  return true;
}

}  // namespace

// ---- AppSettingItem ----------------------------------------------------------

void AppSettingItem::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeObject(appID, "appID");
  coder.encodeObject(openID, "openID");
  coder.encodeInt32(static_cast<std::int32_t>(flag), "flag");
  coder.encodeBool(appAddedByUser, "appAddedByUser");
}

AppSettingItem AppSettingItem::initWithCoder(const KeyedUnarchiver& coder) {
  AppSettingItem item;
  item.appID = coder.decodeString("appID");
  item.openID = coder.decodeString("openID");
  item.flag = static_cast<std::uint32_t>(coder.decodeInt32("flag"));
  item.appAddedByUser = coder.decodeBool("appAddedByUser");
  return item;
}

Data AppSettingItem::archive() const {
  KeyedArchiver coder;
  encodeWithCoder(coder);
  return coder.archivedData(settingItemClasses());
}

std::optional<AppSettingItem> AppSettingItem::unarchive(const Data& data, std::string* error) {
  KeyedUnarchiver coder(data);
  if (!openRecord(coder, "AppSettingItem", error)) return std::nullopt;
  return initWithCoder(coder);
}

// ---- AppRegisterInfo ---------------------------------------------------------

std::string AppRegisterInfo::description() const { return format("{ name:%@ appid:%@}", appName, appID); }

void AppRegisterInfo::encodeWithCoder(KeyedArchiver& coder) const {
  coder.encodeBool(appAddedByUser, "added");
  coder.encodeObject(appID, "appID");
  coder.encodeObject(appIdentifier, "appIdentifier");
  coder.encodeObject(appName, "appName");
  coder.encodeObject(appName4ZhTw, "appName4ZhTw");
  coder.encodeObject(appName4EnUs, "appName4EnUs");
  coder.encodeObject(appDescription, "description");
  coder.encodeObject(appDescription4EnUs, "description4EnUs");
  coder.encodeObject(appDescription4ZhTw, "description4ZhTw");
  coder.encodeObject(appInstallUrl, "appurl");
  coder.encodeBool(needUpdateInfo, "needUpdateInfo");
  coder.encodeBool(needUpdateIcon, "needUpdateIcon");
  coder.encodeBool(needUpdateWatermark, "needUpdateWaterMark");
  coder.encodeInteger(static_cast<std::int64_t>(appInfoVer), "appInfoVer");
  coder.encodeObject(appIconUrl, "appiconurl");
  coder.encodeObject(appWatermarkUrl, "appwatermarkurl");
  coder.encodeInteger(lastUpdateInfoTime, "lastUpdateInfoTime");
  coder.encodeInteger(lastUpdateWatermarkTime, "lastUpdateWatermarkTime");
  coder.encodeInteger(lastUpdateIconTime, "lastUpdateIconTime");
  coder.encodeObject(appTypeList, "apptypelist");
  coder.encodeObject(appDevInfo, "appdevinfo");
  coder.encodeInt32(static_cast<std::int32_t>(appInfoFlag), "appinfoflag");
  coder.encodeInt32(static_cast<std::int32_t>(appUpdateVersion), "appupdateversion");
  coder.encodeBool(appCanShowNew, "appcanshownew");
  coder.encodeBool(isNewApp, "isnewapp");
  coder.encodeObject(appDownloadUrl, "appdownloadurl");
  coder.encodeObject(appDownloadUrlMD5, "appdownloadurlmd5");
  // Written as a 32-bit integer, read back as a native one.
  coder.encodeInt32(static_cast<std::int32_t>(nextUpdateInfoTime), "nextupdateinfotime");
}

AppRegisterInfo AppRegisterInfo::initWithCoder(const KeyedUnarchiver& coder) {
  AppRegisterInfo info;
  info.appAddedByUser = coder.decodeBool("added");
  info.appID = coder.decodeString("appID");
  info.appIdentifier = coder.decodeString("appIdentifier");
  info.appName = coder.decodeString("appName");
  info.appName4ZhTw = coder.decodeString("appName4ZhTw");
  info.appName4EnUs = coder.decodeString("appName4EnUs");
  info.appDescription = coder.decodeString("description");
  info.appDescription4EnUs = coder.decodeString("description4EnUs");
  info.appDescription4ZhTw = coder.decodeString("description4ZhTw");
  info.appInstallUrl = coder.decodeString("appurl");
  info.needUpdateInfo = coder.decodeBool("needUpdateInfo");
  info.needUpdateIcon = coder.decodeBool("needUpdateIcon");
  info.needUpdateWatermark = coder.decodeBool("needUpdateWaterMark");
  info.appInfoVer = static_cast<std::uint64_t>(coder.decodeInteger("appInfoVer"));
  info.appIconUrl = coder.decodeString("appiconurl");
  info.appWatermarkUrl = coder.decodeString("appwatermarkurl");
  info.lastUpdateInfoTime = static_cast<std::uint32_t>(coder.decodeInteger("lastUpdateInfoTime"));
  info.lastUpdateWatermarkTime = static_cast<std::uint32_t>(coder.decodeInteger("lastUpdateWatermarkTime"));
  info.lastUpdateIconTime = static_cast<std::uint32_t>(coder.decodeInteger("lastUpdateIconTime"));
  info.appTypeList = coder.decodeString("apptypelist");
  info.appDevInfo = coder.decodeString("appdevinfo");
  info.appInfoFlag = static_cast<std::uint32_t>(coder.decodeInt32("appinfoflag"));
  info.appUpdateVersion = static_cast<std::uint32_t>(coder.decodeInt32("appupdateversion"));
  info.appCanShowNew = coder.decodeBool("appcanshownew");
  info.isNewApp = coder.decodeBool("isnewapp");
  info.appDownloadUrl = coder.decodeString("appdownloadurl");
  info.appDownloadUrlMD5 = coder.decodeString("appdownloadurlmd5");
  info.nextUpdateInfoTime = static_cast<std::uint32_t>(coder.decodeInteger("nextupdateinfotime"));
  return info;
}

Data AppRegisterInfo::archive() const {
  KeyedArchiver coder;
  encodeWithCoder(coder);
  return coder.archivedData(registerInfoClasses());
}

std::optional<AppRegisterInfo> AppRegisterInfo::unarchive(const Data& data, std::string* error) {
  KeyedUnarchiver coder(data);
  if (!openRecord(coder, "AppRegisterInfo", error)) return std::nullopt;
  return initWithCoder(coder);
}

}  // namespace mirelo

// mirelo-doctor's checks of what an integrator hands it: the Info.plist (XML
// or binary) and the apple-app-site-association file, with the app id, the
// universal link and the team id.  The input is
//   line 1   the app id
//   line 2   the universal link
//   line 3   the team id
//   then     the Info.plist bytes, up to "\n%%\n"
//   then     the association file's text (absent without the separator)
// Checked besides crashes: the report renders (JSON and text) whatever the
// bytes; an XML property list that reads is written and read back the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/harness/Input.h"
#include "tools/common/Doctor.h"
#include "tools/common/Report.h"
#include "tools/common/SiteAssociation.h"
#include "tools/common/XmlPlist.h"
#include "util/PlistJson.h"

namespace mirelo::fuzz {

inline std::string runDoctor(const std::uint8_t* data, std::size_t size) {
  Input in(data, size);
  tooling::DoctorInput input;
  input.appId = std::string(in.line());
  input.universalLink = std::string(in.line());
  input.teamId = std::string(in.line());
  const std::string_view all = in.rest();
  const std::size_t separator = all.find("\n%%\n");
  const std::string_view plist = all.substr(0, separator);
  input.infoPlist = Data::copy(plist);
  if (separator != std::string_view::npos) input.association = std::string(all.substr(separator + 4));

  const tooling::DoctorReport report = tooling::runDoctor(input);
  const tooling::Json json = report.json();
  (void)tooling::dumpJson(json);
  (void)tooling::renderText(json);
  (void)report.text();
  if (report.ok() && (input.appId.empty() || input.universalLink.empty())) return "a report without an app id passed";

  // The XML reader on its own: what reads is written and read back the same.
  std::string error;
  tooling::PlistFormat format = tooling::PlistFormat::Binary;
  const Value value = tooling::decodePropertyList(input.infoPlist, &error, &format);
  if (value.isNull()) {
    if (error.empty()) return "a property list was refused without a reason";
  } else if (format == tooling::PlistFormat::Xml) {
    std::string writeError;
    const std::string xml = tooling::encodeXmlPlist(value, &writeError);
    if (!xml.empty()) {
      const Value back = tooling::decodeXmlPlist(xml, &error);
      if (back.isNull()) return "the writer's own XML does not read: " + error;
      if (plistjson::toJson(back) != plistjson::toJson(value)) return "the writer's own XML reads as another value";
    }
  }
  if (input.association) {
    const std::vector<tooling::AssociationUrl> urls = {{"/mirelo/" + input.appId + "/oauth", "", ""},
                                                       {"/mirelo/" + input.appId + "/pay", "a=1&b=2", "top"}};
    const tooling::AssociationVerdict verdict =
        tooling::checkAssociation(*input.association, input.teamId, "com.example.host", urls);
    if (verdict.kind == tooling::AssociationVerdict::Kind::Covered && !verdict.refused.empty()) {
      return "a covered verdict lists refused paths";
    }
  }
  return std::string();
}

}  // namespace mirelo::fuzz

// Reading what a host sent: the accessors of a received launch and the
// transcript text of launches and answers.
#include "mirelo/sim/MessengerPeer.h"
#include "peer/PeerJson.h"
#include "peer/PeerText.h"
#include "peer/PeerUrl.h"
#include "util/Format.h"

namespace mirelo::sim {
namespace {

const char* baseName(LaunchBase base) {
  switch (base) {
    case LaunchBase::Scheme: return "scheme";
    case LaunchBase::UniversalLink: return "universal link";
    case LaunchBase::Other: return "an unknown URL";
  }
  return "?";
}

const char* answerKindName(PeerAnswer::Kind kind) {
  switch (kind) {
    case PeerAnswer::Kind::Record: return "record answer";
    case PeerAnswer::Kind::Url: return "URL answer";
    case PeerAnswer::Kind::TokenRefresh: return "token refresh";
    case PeerAnswer::Kind::ResendByScheme: return "resend by scheme";
    case PeerAnswer::Kind::SelfCheck: return "self-check return";
    case PeerAnswer::Kind::Request: return "messenger request";
  }
  return "?";
}

std::string shown(const String& s) { return s.isNull() ? "(null)" : "\"" + s.str() + "\""; }

// The media message keys of a record, on one line; "" when it has none.
std::string mediaLine(const ReceivedRequest& r) {
  if (!r.record.contains("objectType") && r.recordCommand != 1010) return "";
  std::string out = "media message:";
  out += " title " + shown(r.mediaTitle());
  out += ", description " + shown(r.mediaDescription());
  const Data thumb = r.thumbData();
  out += thumb.isNull() ? std::string(", no thumbData")
                        : format(", thumbData %lu bytes", static_cast<unsigned long>(thumb.size()));
  if (const auto type = r.objectType()) {
    const std::string name = peer::objectTypeName(*type);
    out += format(", object type %u", *type) + (name.empty() ? std::string(" (unknown)") : " (" + name + ")");
  } else {
    out += ", no object type";
  }
  if (!r.mediaUrl().isNull()) out += ", mediaUrl " + shown(r.mediaUrl());
  const Data file = r.recordData("fileData");
  if (!file.isNull()) out += format(", fileData %lu bytes", static_cast<unsigned long>(file.size()));
  return out;
}

}  // namespace

String ReceivedRequest::queryValue(std::string_view key) const { return query.get(key).stringValue(); }

Dictionary ReceivedRequest::nestedQuery(std::string_view key) const {
  const String v = queryValue(key);
  if (v.isNull()) return {};
  return peer::decodeQuery(peer::splitQuery(v.view(), nullptr), nullptr);
}

Value ReceivedRequest::queryJson(std::string_view key) const {
  const String v = queryValue(key);
  Value out;
  if (v.isNull() || !peer::parseJson(v.view(), &out)) return Value();
  return out;
}

String ReceivedRequest::recordString(std::string_view key) const { return record.get(key).stringValue(); }

Data ReceivedRequest::recordData(std::string_view key) const {
  const Data* d = record.get(key).asData();
  return d ? *d : Data();
}

std::optional<std::int64_t> ReceivedRequest::recordInteger(std::string_view key) const {
  const Value& v = record.get(key);
  if (const std::string* s = v.asString()) return peer::parseDecimal(*s);
  if (const std::int64_t* i = v.asInt()) return *i;
  if (const std::uint64_t* u = v.asUInt()) return static_cast<std::int64_t>(*u);
  return std::nullopt;
}

String ReceivedRequest::text() const { return recordCommand == 1020 ? recordString("title") : String(); }

String ReceivedRequest::mediaTitle() const { return recordCommand == 1020 ? String() : recordString("title"); }

String ReceivedRequest::mediaDescription() const { return recordString("description"); }

Data ReceivedRequest::thumbData() const { return recordData("thumbData"); }

std::optional<std::uint32_t> ReceivedRequest::objectType() const {
  const auto v = recordInteger("objectType");
  if (!v || *v < 0 || *v > 0xFFFFFFFFLL) return std::nullopt;
  return static_cast<std::uint32_t>(*v);
}

String ReceivedRequest::mediaUrl() const { return recordString("mediaUrl"); }

String ReceivedRequest::scope() const {
  if (command == "auth/") return queryValue("scope");
  return recordCommand == 1030 ? recordString("scope") : String();
}

String ReceivedRequest::state() const {
  if (command == "auth/") return queryValue("state");
  return recordCommand == 1030 ? recordString("state") : String();
}

std::string ReceivedRequest::describe() const {
  std::string out = format("launch #%lu by %@ from %@%@\n", static_cast<unsigned long>(index), baseName(base),
                           sourceBundleId.empty() ? std::string("the system") : sourceBundleId,
                           routedAsUniversalLink ? std::string(" (routed as a universal link)") : std::string());
  out += "  url: " + peer::maskTokens(url) + "\n";
  out += "  app id: " + (appId.empty() ? std::string("(none)") : appId) +
         "   command: " + (command.empty() ? std::string("(none)") : command) + "\n";
  if (!query.empty()) out += "  query: " + peer::describeValue(Value(peer::maskTokens(query)), 1) + "\n";
  out += "  token: " + (token.isNull() ? std::string("(null)") : std::string("<token>")) + "   context id: " + contextId.description() +
         "   bundle id: " + bundleId.description() + "   degraded: " + (degraded ? "yes" : "no") + "\n";
  if (!jsonText.isNull()) {
    out += "  json: " + (json.isNull() ? "(malformed) " + jsonText.str() : peer::describeValue(json, 1)) + "\n";
  }
  if (hasRecord) {
    out += recordCommand ? format("  record (command %lld): ", static_cast<long long>(*recordCommand))
                         : std::string("  record (no command): ");
    out += peer::describeValue(Value(record), 1) + "\n";
    if (recordCommand == 1020) out += "  text message: " + shown(text()) + "\n";
    const std::string media = mediaLine(*this);
    if (!media.empty()) out += "  " + media + "\n";
  } else {
    out += "  no record\n";
  }
  if (!oldText.isNull()) out += "  old_text: " + shown(oldText) + "\n";
  for (const std::string& n : notes) out += "  note: " + n + "\n";
  return out;
}

std::string PeerAnswer::describe() const {
  std::string out = answerKindName(kind);
  if (inReplyTo) out += format(" to launch #%lu", static_cast<unsigned long>(*inReplyTo));
  out += format(" by %@%@: %@\n", viaUniversalLink ? "universal link" : "scheme",
                fallback ? " (fallback)" : "", peer::maskTokens(url));
  out += "  opened: " + (opened ? std::string(*opened ? "yes" : "no") : std::string("pending")) + "\n";
  if (const std::size_t q = url.find('?'); q != std::string::npos) {
    const Dictionary query = peer::decodeQuery(peer::splitQuery(std::string_view(url).substr(q + 1), nullptr), nullptr);
    out += "  query: " + peer::describeValue(Value(peer::maskTokens(query)), 1) + "\n";
  }
  if (hasRecord) out += "  record for " + appId + ": " + peer::describeValue(Value(record), 1) + "\n";
  for (const std::string& n : notes) out += "  note: " + n + "\n";
  return out;
}

}  // namespace mirelo::sim

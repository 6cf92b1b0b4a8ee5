// The messenger peer: installation, reading launches, and answering them.
#include "mirelo/sim/MessengerPeer.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "peer/PeerJson.h"
#include "peer/PeerText.h"
#include "peer/PeerUrl.h"
#include "util/BinaryPlist.h"
#include "util/Format.h"

namespace mirelo::sim {
namespace {

constexpr const char* kPlatformIdName = "platformId=mirelo";
constexpr const char* kTokenKey = "mirelo_auth_token";
constexpr const char* kContextIdKey = "mirelo_auth_context_id";
constexpr const char* kBundleIdKey = "mirelo_app_bundleId";
constexpr const char* kDegradeKey = "mirelo_degrade_launch_by_scheme";
constexpr const char* kOldTextKey = "old_text";
constexpr const char* kWrongContextId = "mrpeer_wrong_context_id";

// What the messenger does with each command path it knows.  A URL name
// means the answer goes back in a URL of that name; a record number means a
// record on the pasteboard (for sign-in, the record form is the
// alternative).  Commands without either are only logged.
struct CommandInfo {
  const char* command;
  const char* urlName;
  std::uint64_t record;
};

constexpr CommandInfo kCommands[] = {
    {"sendreq/", nullptr, 2020},
    {"auth/", "oauth", 2030},
    {"pay/", "pay", 0},
    {"jointpay/", "jointpay", 0},
    {"offlinepay/", "offlinepay", 0},
    {"openwebview/", "openwebview", 0},
    {"openbusinesswebview/", "openbusinesswebview", 0},
    {"openranklist/", "openranklist", 0},
    {"cardpackage/", "cardPackage", 0},
    {"choosecard/", "choosecard", 0},
    {"chooseinvoice/", "chooseinvoice", 0},
    {"opentypewebview/", "opentypewebview", 0},
    {"launchmraredirectingpage/", "launchmraredirectingpage", 0},
    {"jumpMra/", nullptr, 2070},
    {"jumpFakeNativeMra/", nullptr, 2080},
    {"finderShareVideo/", nullptr, 2090},
    {"finderOpenProfile/", nullptr, 2100},
    {"finderOpenLive/", nullptr, 2110},
    {"finderOpenFeed/", nullptr, 2120},
    {"customerService/", nullptr, 2130},
    {"createchatroom/", nullptr, 2050},
    {"joinchatroom/", nullptr, 2060},
    {"handlescanresult/", nullptr, 0},
    {"sendresp/", nullptr, 0},
    {"refreshTokenFail/", nullptr, 0},
};

const CommandInfo* commandInfo(std::string_view command) {
  for (const CommandInfo& c : kCommands) {
    if (command == c.command) return &c;
  }
  return nullptr;
}

// Commands whose whole query is one JSON document.
bool isJsonQueryCommand(std::string_view command) {
  return command == "cardpackage/" || command == "choosecard/" || command == "chooseinvoice/";
}

bool isIdentityKey(std::string_view key) {
  return key == kTokenKey || key == kContextIdKey || key == kBundleIdKey || key == kDegradeKey;
}

// The web-view type of "opentypewebview/" and the result type the messenger
// answers it with.
const char* webViewResultType(std::int64_t type) {
  switch (type) {
    case 1: return "subscribemessage";
    case 2: return "invoice_auth_insert";
    case 3: return "nontaxpay";
    case 4: return "payinsurance";
    case 5: return "subscribeminiprogrammsg";
    default: return nullptr;
  }
}

std::string normalisedCommand(std::string_view command) {
  std::string c(command);
  if (!c.empty() && c.back() != '/') c += '/';
  return c;
}

// Sets the entries of `overlay` on `target`; a null value removes the key.
void overlay(Dictionary& target, const Dictionary& values, bool renameExtMsg) {
  for (const auto& [key, value] : values) {
    const std::string k = renameExtMsg && key == "extMsg" ? std::string("messageExt") : key;
    if (value.isNull()) target.remove(k);
    else target.set(k, value);
  }
}

std::string decimal(std::int64_t v) { return std::to_string(v); }

}  // namespace

// ---- outcomes ----

Outcome Outcome::success(Dictionary values) {
  Outcome o;
  o.values = std::move(values);
  return o;
}

Outcome Outcome::cancel() {
  Outcome o;
  o.kind = Kind::Cancel;
  return o;
}

Outcome Outcome::deny() {
  Outcome o;
  o.kind = Kind::Deny;
  return o;
}

Outcome Outcome::withCode(int code, Dictionary values) {
  Outcome o;
  o.kind = Kind::Code;
  o.code = code;
  o.values = std::move(values);
  return o;
}

Outcome Outcome::noAnswer() {
  Outcome o;
  o.kind = Kind::NoAnswer;
  return o;
}

int Outcome::resultCode() const {
  switch (kind) {
    case Kind::Success: return 0;
    case Kind::Cancel: return -2;
    case Kind::Deny: return -4;
    case Kind::Code: return code;
    case Kind::NoAnswer: return 0;
  }
  return 0;
}

// ---- installation ----

MessengerPeer::MessengerPeer(std::weak_ptr<SimDevice> device, Options options)
    : device_(std::move(device)), options_(std::move(options)) {}

std::shared_ptr<MessengerPeer> MessengerPeer::install(SimDevice& device) { return install(device, Options()); }

std::shared_ptr<MessengerPeer> MessengerPeer::install(SimDevice& device, Options options) {
  AppManifest manifest;
  manifest.bundleId = options.bundleId;
  std::vector<std::string> schemes;
  if (options.schemeApi) schemes.push_back("mirelo");
  if (options.universalLinkApi) schemes.push_back("mireloULAPI");
  if (options.stateApi) schemes.push_back("mireloStateAPI");
  manifest.infoPlist = AppManifest::makeInfoPlist(schemes, {});
  if (options.claimUniversalLinks) manifest.universalLinks.push_back({kUniversalLinkHost, {kUniversalLinkPath}});

  auto peer = std::make_shared<MessengerPeer>(device.weak_from_this(), std::move(options));
  SimApp& app = device.install(std::move(manifest));
  // The handler keeps the peer alive as long as the app is installed; the
  // peer refers to the device only weakly, so there is no cycle.
  app.onOpenURL([peer](const OpenContext& context) { peer->handleOpen(context); });
  peer->installed_ = true;
  return peer;
}

void MessengerPeer::uninstall() {
  if (const auto device = device_.lock()) {
    if (device->app(options_.bundleId)) device->uninstall(options_.bundleId);
  }
  installed_ = false;
}

bool MessengerPeer::installed() const { return installed_ && app() != nullptr; }

SimApp* MessengerPeer::app() const {
  const auto device = device_.lock();
  return device ? device->app(options_.bundleId) : nullptr;
}

std::shared_ptr<platform::Platform> MessengerPeer::platform() const {
  SimApp* a = installed_ ? app() : nullptr;
  return a ? a->platform() : nullptr;
}

// ---- scripting ----

void MessengerPeer::script(std::string_view command, Outcome outcome) {
  scripts_[normalisedCommand(command)] = std::move(outcome);
}

void MessengerPeer::scriptOnce(std::string_view command, Outcome outcome) {
  once_[normalisedCommand(command)].push_back(std::move(outcome));
}

void MessengerPeer::setDefaultOutcome(Outcome outcome) { default_ = std::move(outcome); }

void MessengerPeer::clearScripts() {
  scripts_.clear();
  once_.clear();
  default_ = Outcome();
}

Outcome MessengerPeer::outcomeFor(const std::string& command) {
  const std::string key = normalisedCommand(command);
  if (auto it = once_.find(key); it != once_.end() && !it->second.empty()) {
    Outcome o = std::move(it->second.front());
    it->second.erase(it->second.begin());
    return o;
  }
  if (auto it = scripts_.find(key); it != scripts_.end()) return it->second;
  return default_;
}

// ---- log ----

void MessengerPeer::clearLog() {
  received_.clear();
  answers_.clear();
  events_.clear();
  ++generation_;
}

std::string MessengerPeer::transcript() const {
  std::string out;
  for (const Event& e : events_) {
    out += e.answer ? answers_[e.index].describe() : received_[e.index].describe();
  }
  return out;
}

// ---- reading a launch ----

ReceivedRequest MessengerPeer::read(const OpenContext& context) const {
  ReceivedRequest r;
  r.url = context.url;
  r.sourceBundleId = context.sourceBundleId;
  r.routedAsUniversalLink = context.viaUniversalLink;
  auto& notes = r.notes;

  std::string_view url = r.url;
  if (const std::size_t hash = url.find('#'); hash != std::string_view::npos) {
    notes.push_back("fragment ignored: " + std::string(url.substr(hash)));
    url = url.substr(0, hash);
  }

  const std::string linkOrigin = std::string("https://") + kUniversalLinkHost;
  std::string_view rest;
  if (peer::startsWithIgnoringCase(url, linkOrigin) && url.substr(linkOrigin.size(), 5) == "/app/") {
    r.base = LaunchBase::UniversalLink;
    rest = url.substr(linkOrigin.size() + 5);
  } else if (peer::startsWithIgnoringCase(url, "mirelo://") && url.substr(9, 4) == "app/") {
    r.base = LaunchBase::Scheme;
    rest = url.substr(13);
  } else {
    notes.push_back("not a launch URL of the messenger");
    return r;
  }
  r.viaUniversalLink = r.base == LaunchBase::UniversalLink;

  const std::size_t idEnd = rest.find_first_of("/?");
  r.appId = std::string(rest.substr(0, idEnd));
  if (r.appId.empty()) notes.push_back("no app id in the launch URL");
  std::string_view extra;
  if (idEnd == std::string_view::npos) {
    notes.push_back("no '/' after the app id");
  } else if (rest[idEnd] == '?') {
    notes.push_back("no '/' after the app id");
    extra = rest.substr(idEnd);
  } else {
    extra = rest.substr(idEnd + 1);
  }

  const std::size_t q = extra.find('?');
  r.command = std::string(extra.substr(0, q));
  if (q != std::string_view::npos) r.rawQuery = std::string(extra.substr(q + 1));
  if (!r.command.empty() && r.command.back() != '/') notes.push_back("command path without a trailing '/'");

  std::vector<peer::QueryPiece> pieces = peer::splitQuery(r.rawQuery, &notes);
  if (isJsonQueryCommand(r.command)) {
    // The query is the JSON document itself, then the identity pairs that
    // the host appended.
    std::vector<peer::QueryPiece> identity;
    while (!pieces.empty() && pieces.back().hasEquals && isIdentityKey(pieces.back().rawKey)) {
      identity.insert(identity.begin(), pieces.back());
      pieces.pop_back();
    }
    std::string raw;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      if (i) raw += '&';
      raw += pieces[i].rawKey;
      if (pieces[i].hasEquals) raw += "=" + pieces[i].rawValue;
    }
    bool bad = false;
    r.jsonText = String(peer::percentDecode(raw, &bad));
    if (bad) notes.push_back("malformed percent escape in the JSON query");
    std::string error;
    if (!peer::parseJson(r.jsonText.view(), &r.json, &error)) {
      r.json = Value();
      notes.push_back("the JSON query does not parse: " + error);
    }
    r.query = peer::decodeQuery(identity, &notes);
  } else {
    r.query = peer::decodeQuery(pieces, &notes);
  }

  r.token = r.query.get(kTokenKey).stringValue();
  r.contextId = r.query.get(kContextIdKey).stringValue();
  r.bundleId = r.query.get(kBundleIdKey).stringValue();
  const String degrade = r.query.get(kDegradeKey).stringValue();
  r.degraded = degrade == "1";
  if (!degrade.isNull() && !r.degraded) notes.push_back("degrade mark with a value other than \"1\": " + degrade.str());
  if (r.viaUniversalLink) {
    if (r.degraded) notes.push_back("degrade mark on a universal link");
    if (r.bundleId.isNull()) notes.push_back("universal link without mirelo_app_bundleId");
  } else {
    if (!r.token.isNull()) notes.push_back("token on a scheme URL");
    if (!r.contextId.isNull()) notes.push_back("context id on a scheme URL");
  }
  if (!r.bundleId.isNull() && !r.sourceBundleId.empty() && r.bundleId.str() != r.sourceBundleId) {
    notes.push_back("mirelo_app_bundleId " + r.bundleId.str() + " is not the opener " + r.sourceBundleId);
  }

  readRecord(r);
  return r;
}

void MessengerPeer::readRecord(ReceivedRequest& r) const {
  const auto p = platform();
  if (!p || r.appId.empty()) return;
  auto& notes = r.notes;
  // Like the kit, the messenger reads the item only when it is there: every
  // read of another app's content may put a paste notice on screen.
  const auto types = p->pasteboard->types();
  const bool present = std::find(types.begin(), types.end(), kPasteboardType) != types.end();
  const Data data = present ? p->pasteboard->dataForPasteboardType(kPasteboardType) : Data();
  readChangeCount_ = p->pasteboard->changeCount();
  readOldText_ = String();
  if (data.isNull()) {
    notes.push_back("no \"content\" item on the pasteboard");
    return;
  }
  if (data.empty()) {
    notes.push_back("the \"content\" item is empty");
    return;
  }
  std::string error;
  const Value decoded = bplist::decode(data, &error);
  if (decoded.isNull()) {
    notes.push_back("the \"content\" item is not a binary property list: " + error);
    return;
  }
  const Dictionary* item = decoded.asDictionary();
  if (!item) {
    notes.push_back("the \"content\" item is not a dictionary");
    return;
  }
  if (const Value* old = item->find(kOldTextKey)) {
    if (old->isString()) r.oldText = readOldText_ = old->stringValue();
    else notes.push_back("old_text is not a string");
  }
  std::vector<std::string> others;
  for (const auto& [key, value] : *item) {
    if (key != r.appId && key != kOldTextKey) others.push_back(key);
  }
  const Value* record = item->find(r.appId);
  if (!record) {
    std::string held;
    for (const std::string& k : others) held += (held.empty() ? "" : ", ") + k;
    notes.push_back("no record for " + r.appId + " on the pasteboard" +
                    (held.empty() ? std::string() : " (it holds: " + held + ")"));
    return;
  }
  if (!others.empty()) notes.push_back("the pasteboard item holds records of other apps too");
  if (!record->isDictionary()) {
    notes.push_back("the record of " + r.appId + " is not a dictionary");
    return;
  }
  r.hasRecord = true;
  r.record = *record->asDictionary();
  if (!r.record.contains("command")) {
    notes.push_back("record without \"command\"");
  } else if (r.record.get("command").isString()) {
    r.recordCommand = peer::parseDecimal(*r.record.get("command").asString());
  }
  peer::checkRecordTypes(r.record, &notes);
}

// ---- handling a launch ----

void MessengerPeer::handleOpen(const OpenContext& context) {
  const std::size_t idx = received_.size();
  ReceivedRequest request = read(context);
  request.index = idx;
  received_.push_back(std::move(request));
  events_.push_back({false, idx});

  ReceivedRequest& r = received_[idx];
  if (r.base == LaunchBase::Other || r.appId.empty()) return;
  if (r.command == "sendresp/" || r.command == "refreshTokenFail/") return;  // logged only

  if (r.contextId == kSelfCheckContextId) {
    if (selfCheck_.answer) answerSelfCheck(idx);
    return;
  }
  if (r.viaUniversalLink && r.token.empty() && !r.contextId.empty() &&
      tokenPolicy_.action != TokenPolicy::Action::Proceed) {
    answerToken(idx);
    return;
  }
  if (!r.token.empty() && !issuedTokens_.empty() &&
      std::find(issuedTokens_.begin(), issuedTokens_.end(), r.token.str()) == issuedTokens_.end()) {
    r.notes.push_back("a token that this messenger did not issue");
  }

  Outcome outcome = outcomeFor(r.command);
  if (outcome.kind == Outcome::Kind::NoAnswer) return;
  if (outcome.delaySeconds > 0) {
    const auto p = platform();
    if (!p) return;
    std::weak_ptr<MessengerPeer> weak = weak_from_this();
    const std::uint64_t generation = generation_;
    p->runLoop->performAfter(this, outcome.delaySeconds, [weak, generation, idx, outcome]() {
      const auto self = weak.lock();
      if (self && self->generation_ == generation) self->answerCommand(idx, outcome);
    });
    return;
  }
  answerCommand(idx, outcome);
}

// ---- answering ----

MessengerPeer::Target MessengerPeer::target(const std::string& appId, const std::string& name,
                                            const std::string& query, AnswerRoute route, const String& recordLink,
                                            const String& scriptedLink, std::vector<std::string>* notes) const {
  const std::string tail = query.empty() ? name : name + "?" + query;
  Target t;
  t.schemeUrl = appId + "://" + tail;
  const String link = !recordLink.empty() ? recordLink : scriptedLink;
  bool useLink = route == AnswerRoute::UniversalLink || (route == AnswerRoute::Auto && !link.empty());
  if (useLink && link.empty()) {
    if (notes) notes->push_back("no universal link of the host known; answering by scheme");
    useLink = false;
  }
  t.viaUniversalLink = useLink;
  t.url = useLink ? link.str() + appId + "/" + tail : t.schemeUrl;
  return t;
}

bool MessengerPeer::writeRecord(const std::string& appId, const Dictionary& record) {
  const auto p = platform();
  if (!p) return false;
  Dictionary item;
  item.set(appId, Value(record));
  // Keep the user's text: the plain text on the pasteboard, or else the
  // text that the host's item kept for it.
  // Nothing is read that the pasteboard does not hold, nor the item the
  // messenger has read already (same change count).
  const auto types = p->pasteboard->types();
  const String plain = p->pasteboard->hasStrings() ? p->pasteboard->string() : String();
  if (!plain.empty()) {
    item.set(kOldTextKey, Value(plain));
  } else if (p->pasteboard->changeCount() == readChangeCount_) {
    if (!readOldText_.empty()) item.set(kOldTextKey, Value(readOldText_));
  } else if (std::find(types.begin(), types.end(), kPasteboardType) != types.end()) {
    const Data current = p->pasteboard->dataForPasteboardType(kPasteboardType);
    if (!current.empty()) {
      const Value decoded = bplist::decode(current);
      if (const Dictionary* d = decoded.asDictionary()) {
        const Value& old = d->get(kOldTextKey);
        if (old.isString() && !old.asString()->empty()) item.set(kOldTextKey, old);
      }
    }
  }
  const Data encoded = bplist::encode(Value(item));
  if (encoded.isNull()) return false;
  p->pasteboard->setData(encoded, kPasteboardType);
  return true;
}

bool MessengerPeer::open(PeerAnswer answer, const Target& t) {
  const auto p = platform();
  if (!p) return false;
  answer.url = t.url;
  answer.viaUniversalLink = t.viaUniversalLink;
  const std::size_t i = answers_.size();
  answers_.push_back(answer);
  events_.push_back({true, i});
  if (!t.viaUniversalLink) {
    const bool ok = p->application->openURL(t.url);
    answers_[i].opened = ok;
    return ok;
  }
  std::weak_ptr<MessengerPeer> weak = weak_from_this();
  const std::uint64_t generation = generation_;
  p->application->openURL(t.url, true, [weak, generation, i, t, answer](bool ok) {
    const auto self = weak.lock();
    if (!self || self->generation_ != generation || i >= self->answers_.size()) return;
    self->answers_[i].opened = ok;
    if (!ok && self->options_.fallbackToScheme) {
      PeerAnswer retry = answer;
      retry.fallback = true;
      retry.notes.push_back("the universal link did not open; retrying by the host's scheme");
      self->open(std::move(retry), Target{t.schemeUrl, false, t.schemeUrl});
    }
  });
  return true;
}

void MessengerPeer::answerToken(std::size_t idx) {
  const ReceivedRequest& r = received_[idx];
  const TokenPolicy& policy = tokenPolicy_;
  PeerAnswer a;
  a.inReplyTo = idx;
  a.appId = r.appId;
  std::string query;
  const std::string cid = peer::escapeAll(r.contextId.view());
  switch (policy.action) {
    case TokenPolicy::Action::Refresh:
      a.kind = PeerAnswer::Kind::TokenRefresh;
      a.name = "refreshToken";
      query = std::string(kTokenKey) + "=" + peer::escapeAll(policy.token) + "&" + kContextIdKey + "=" + cid;
      issuedTokens_.push_back(policy.token);
      break;
    case TokenPolicy::Action::FailRefresh:
      a.kind = PeerAnswer::Kind::TokenRefresh;
      a.name = "refreshToken";
      if (policy.failure == TokenPolicy::Failure::MissingToken) {
        query = std::string(kContextIdKey) + "=" + cid;
        a.notes.push_back("refresh without a token");
      } else {
        query = std::string(kTokenKey) + "=" + peer::escapeAll(policy.token) + "&" + kContextIdKey + "=" +
                kWrongContextId;
        a.notes.push_back("refresh with another context id");
      }
      break;
    case TokenPolicy::Action::ResendByScheme:
      a.kind = PeerAnswer::Kind::ResendByScheme;
      a.name = "resendContextReqByScheme";
      query = std::string(kContextIdKey) + "=" + cid;
      break;
    case TokenPolicy::Action::Proceed:
      return;
  }
  const Target t = target(r.appId, a.name, query, policy.route, r.recordString("universalLink"), policy.universalLink,
                          &a.notes);
  open(std::move(a), t);
}

void MessengerPeer::answerSelfCheck(std::size_t idx) {
  const ReceivedRequest& r = received_[idx];
  PeerAnswer a;
  a.kind = PeerAnswer::Kind::SelfCheck;
  a.inReplyTo = idx;
  a.appId = r.appId;
  a.name = kPlatformIdName;
  const std::string query = std::string(kContextIdKey) + "=" + peer::escapeAll(r.contextId.view());
  const Target t = target(r.appId, a.name, query, selfCheck_.route, r.recordString("universalLink"),
                          selfCheck_.universalLink, &a.notes);
  open(std::move(a), t);
}

void MessengerPeer::answerCommand(std::size_t idx, const Outcome& outcome) {
  if (idx >= received_.size()) return;
  const ReceivedRequest& r = received_[idx];
  const CommandInfo* info = commandInfo(r.command);
  const int code = outcome.resultCode();

  PeerAnswer a;
  a.inReplyTo = idx;
  a.appId = r.appId;

  std::string urlName = outcome.name;
  std::uint64_t recordCommand = 0;
  if (urlName.empty() && info && info->urlName && !outcome.asRecord) urlName = info->urlName;
  if (urlName.empty()) {
    recordCommand = outcome.recordCommand.value_or(info ? info->record : 0);
    if (recordCommand == 0) {
      received_[idx].notes.push_back(info ? "the messenger does not answer " + r.command
                                          : "unknown command " + r.command + "; not answered");
      return;
    }
  }

  if (!urlName.empty()) {
    // ---- URL answer ----
    a.kind = PeerAnswer::Kind::Url;
    a.name = urlName;
    Dictionary params;
    const bool success = outcome.kind == Outcome::Kind::Success;
    if (urlName == "oauth") {
      if (success) params.set("code", Value("mrpeer_auth_code"));
      else if (outcome.kind == Outcome::Kind::Deny) params.set("code", Value("authdeny"));
      if (const String s = r.queryValue("state"); !s.isNull()) params.set("state", Value(s));
      if (!options_.language.empty()) params.set("lang", Value(options_.language));
      if (!options_.country.empty()) params.set("country", Value(options_.country));
      if (const String tdi = r.queryValue("tdi_ext_info"); !tdi.empty()) params.set("tdi_ext_info", Value(tdi));
    } else if (urlName == "pay" || urlName == "jointpay" || urlName == "offlinepay" || urlName == "openwebview" ||
               urlName == "openranklist") {
      params.set("ret", Value(decimal(code)));
    } else if (urlName == "openbusinesswebview") {
      params.set("ret", Value(decimal(code)));
      if (const String type = r.queryValue("type"); !type.isNull()) params.set("type", Value(type));
    } else if (urlName == "cardPackage") {
      params.set("errCode", Value(decimal(code)));
      if (success) {
        Array cards;
        const Dictionary* doc = r.json.asDictionary();
        for (int i = 0; doc && doc->contains("id" + std::to_string(i)); ++i) {
          Dictionary card;
          card.set("card_id", doc->get("id" + std::to_string(i)));
          card.set("card_ext", doc->get("ext" + std::to_string(i)).isNull() ? Value("")
                                                                            : doc->get("ext" + std::to_string(i)));
          card.set("code", Value("mrpeer_code_" + std::to_string(i)));
          card.set("is_succ", Value(1));
          cards.push_back(Value(std::move(card)));
        }
        params.set("addCardInfo", Value(std::move(cards)));
      }
    } else if (urlName == "choosecard" || urlName == "chooseinvoice") {
      params.set("errCode", Value(decimal(code)));
      if (success) {
        const bool invoice = urlName == "chooseinvoice";
        const Dictionary* doc = r.json.asDictionary();
        Dictionary item;
        item.set("card_id", Value(invoice ? "mrpeer_invoice_1" : "mrpeer_card_1"));
        item.set("encrypt_code", Value(invoice ? "mrpeer_invoice_code_1" : "mrpeer_card_code_1"));
        item.set("app_id", doc && doc->get("appID").isString() ? doc->get("appID") : Value(r.appId));
        params.set(invoice ? "chooseInvoiceInfo" : "chooseCardInfo", Value(Array{Value(std::move(item))}));
      }
    } else if (urlName == "opentypewebview") {
      const auto type = peer::parseDecimal(r.queryValue("type").view());
      const char* resultType = type ? webViewResultType(*type) : nullptr;
      if (resultType) params.set("mr_internal_resptype", Value(resultType));
      else a.notes.push_back("web-view type " + r.queryValue("type").description() + " is not known");
      params.set("ret", Value(decimal(code)));
      if (type == 1) {
        const Dictionary nested = r.nestedQuery("query");
        for (const char* key : {"template_id", "scene", "reserved"}) {
          if (nested.contains(key)) params.set(key, nested.get(key));
        }
        params.set("action", Value(success ? "confirm" : "cancel"));
      }
    } else if (urlName == "launchmraredirectingpage") {
      if (const String ticket = r.queryValue("ticket"); !ticket.isNull()) params.set("ticket", Value(ticket));
      params.set("errcode", Value(decimal(code)));
    }
    overlay(params, outcome.values, false);
    if (outcome.includeToken) {
      params.set(kTokenKey, Value(tokenPolicy_.token));
      params.set(kContextIdKey, Value(r.contextId));
      issuedTokens_.push_back(tokenPolicy_.token);
    }

    // Keys that the host unescapes get every reserved character escaped;
    // the others are read as they stand, so only what would break the URL
    // is escaped.
    const bool miniProgramSubscribe = params.get("mr_internal_resptype") == Value("subscribeminiprogrammsg");
    auto unescapedByHost = [&](const std::string& key) {
      return key == "tdi_auth_buffer" || key == "tdi_auth_params" || key == "resultInfo" || key == "addCardInfo" ||
             key == "chooseCardInfo" || key == "chooseInvoiceInfo" || key == kTokenKey || key == kContextIdKey ||
             (miniProgramSubscribe && (key == "openid" || key == "unionid" || key == "nickname"));
    };
    const auto p = platform();
    std::string query;
    for (const auto& [key, value] : params) {
      std::string text;
      bool full = unescapedByHost(key);
      switch (value.type()) {
        case Value::Type::String: text = *value.asString(); break;
        case Value::Type::Bool: text = *value.asBool() ? "1" : "0"; break;
        case Value::Type::Int:
        case Value::Type::UInt: text = value.description(); break;
        case Value::Type::Real: {
          char buf[32];
          std::snprintf(buf, sizeof buf, "%g", *value.asReal());
          text = buf;
          break;
        }
        case Value::Type::Data:
          text = p ? p->crypto->base64Encode(value.asData()->bytes(), value.asData()->size()) : std::string();
          full = true;
          break;
        default:
          text = peer::writeJson(value);
          full = true;
          break;
      }
      std::string escaped = full ? peer::escapeAll(text) : peer::escapeMinimal(text);
      if (!full && escaped != text) a.notes.push_back("value of " + key + " escaped; the host reads it as it stands");
      query += (query.empty() ? "" : "&") + peer::escapeMinimal(key) + "=" + escaped;
    }
    if (!outcome.extraQuery.empty()) query += (query.empty() ? "" : "&") + outcome.extraQuery;
    const Target t =
        target(r.appId, urlName, query, outcome.route, r.recordString("universalLink"), outcome.universalLink, &a.notes);
    open(std::move(a), t);
    return;
  }

  // ---- record answer ----
  if (r.command == "sendreq/" && !outcome.recordCommand &&
      (outcome.values.contains("language") || outcome.values.contains("country"))) {
    recordCommand = 2010;
  }
  Dictionary record;
  record.set("command", Value(std::to_string(recordCommand)));
  record.set("returnFromApp", Value("1"));
  record.set("result", Value(decimal(code)));
  if (const String sdk = r.recordString("sdkver"); !sdk.isNull()) record.set("sdkver", Value(sdk));
  if (options_.mireloVersion != 0) record.set("mireloVersion", Value(options_.mireloVersion));
  if (recordCommand == 2030) {
    if (const String s = r.queryValue("state"); !s.isNull()) record.set("state", Value(s));
    if (const String tdi = r.queryValue("tdi_ext_info"); !tdi.empty()) record.set("tdi_ext_info", Value(tdi));
  } else if (recordCommand == 2080) {
    if (const String type = r.queryValue("businessType"); !type.isNull()) record.set("businessType", Value(type));
  }
  overlay(record, outcome.values, true);

  a.kind = PeerAnswer::Kind::Record;
  a.name = kPlatformIdName;
  a.hasRecord = true;
  a.record = record;
  const std::string appId = r.appId;
  const String recordLink = r.recordString("universalLink");
  if (!writeRecord(appId, record)) {
    a.notes.push_back("the record could not be written");
  }
  const Target t = target(appId, a.name, "", outcome.route, recordLink, outcome.universalLink, &a.notes);
  open(std::move(a), t);
}

// ---- the messenger's own requests ----

bool MessengerPeer::sendRequest(std::uint64_t command, const PeerHostRequest& request) {
  if (request.appId.empty() || !platform()) return false;
  Dictionary record;
  record.set("command", Value(std::to_string(command)));
  record.set("returnFromApp", Value("0"));
  record.set("result", Value("0"));
  if (options_.mireloVersion != 0) record.set("mireloVersion", Value(options_.mireloVersion));
  if (!request.openID.isNull()) record.set("openID", Value(request.openID));
  if (!request.language.isNull()) record.set("language", Value(request.language));
  if (!request.country.isNull()) record.set("country", Value(request.country));
  if (request.media) {
    const PeerMediaContent& m = *request.media;
    if (!m.title.isNull()) record.set("title", Value(m.title));
    if (!m.description.isNull()) record.set("description", Value(m.description));
    if (!m.thumbData.isNull()) record.set("thumbData", Value(m.thumbData));
    if (!m.mediaTagName.isNull()) record.set("mediaTagName", Value(m.mediaTagName));
    if (!m.messageExt.isNull()) record.set("messageExt", Value(m.messageExt));
    if (!m.messageAction.isNull()) record.set("messageAction", Value(m.messageAction));
    if (m.objectType != 0) {
      record.set("objectType", Value(std::to_string(m.objectType)));
      // The keys that every media object carries.
      record.set("withShareTicket", Value(false));
      record.set("disableForward", Value(false));
      record.set("appbrandisupdatablemessage", Value(false));
      record.set("appbrandissecrectmessage", Value(false));
      record.set("miniprogramType", Value(0));
      record.set("tesselObjectSubType", Value("0"));
      record.set("musicVideoDuration", Value("0"));
      record.set("musicVideoIssueData", Value("0"));
      overlay(record, m.objectKeys, false);
    }
  }
  overlay(record, request.extraKeys, false);

  PeerAnswer a;
  a.kind = PeerAnswer::Kind::Request;
  a.appId = request.appId;
  a.name = kPlatformIdName;
  a.hasRecord = true;
  a.record = record;
  if (!writeRecord(request.appId, record)) return false;
  const Target t = target(request.appId, a.name, "", request.route, String(), request.universalLink, &a.notes);
  return open(std::move(a), t);
}

bool MessengerPeer::sendShowMessage(const PeerHostRequest& request) { return sendRequest(1010, request); }

bool MessengerPeer::sendGetMessage(const PeerHostRequest& request) { return sendRequest(2000, request); }

bool MessengerPeer::sendLaunch(const PeerHostRequest& request) { return sendRequest(2040, request); }

}  // namespace mirelo::sim

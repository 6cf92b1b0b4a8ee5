#include "mirelo/MireloAuthSDK.h"

#include <nlohmann/json.hpp>

#include <limits>
#include <utility>

#include "util/Log.h"
#include "util/MainThread.h"
#include "util/MireloApiUtil.h"

namespace mirelo {

namespace {

constexpr double kRepollSeconds = 2.0;
constexpr double kPollTimeoutSeconds = 60.0;
// The system's default time-out, kept by the QR request.
constexpr double kDefaultTimeoutSeconds = 60.0;
// The poll state read when the answer has none.
constexpr std::int64_t kMissingState = -999999;

// Containers nested deeper than this make an answer malformed: the
// conversion below recurses once per level, and a 1 MiB answer could
// otherwise nest half a million levels deep.
constexpr unsigned kMaxJsonDepth = 512;

// JSON as the kit's values: objects keep their order, numbers stay
// integers when they are written as integers, and true/false stay booleans.
// False when containers nest deeper than kMaxJsonDepth.
bool valueOfJson(const nlohmann::json& j, unsigned depth, Value* out) {
  switch (j.type()) {
    case nlohmann::json::value_t::object: {
      if (depth >= kMaxJsonDepth) return false;
      Dictionary d;
      for (auto it = j.begin(); it != j.end(); ++it) {
        Value member;
        if (!valueOfJson(it.value(), depth + 1, &member)) return false;
        d.set(it.key(), std::move(member));
      }
      *out = Value(std::move(d));
      return true;
    }
    case nlohmann::json::value_t::array: {
      if (depth >= kMaxJsonDepth) return false;
      Array a;
      for (const auto& element : j) {
        Value item;
        if (!valueOfJson(element, depth + 1, &item)) return false;
        a.push_back(std::move(item));
      }
      *out = Value(std::move(a));
      return true;
    }
    case nlohmann::json::value_t::string:
      *out = Value(j.get<std::string>());
      return true;
    case nlohmann::json::value_t::boolean:
      *out = Value(j.get<bool>());
      return true;
    case nlohmann::json::value_t::number_integer:
      *out = Value(j.get<std::int64_t>());
      return true;
    case nlohmann::json::value_t::number_unsigned:
      *out = Value(static_cast<std::int64_t>(j.get<std::uint64_t>()));
      return true;
    case nlohmann::json::value_t::number_float:
      *out = Value(j.get<double>());
      return true;
    default:
      *out = Value();
      return true;
  }
}

// The answer's JSON as a value; null when it is not JSON or nests too deep.
// A raw NUL never occurs in JSON: the parser would take it for the end of
// the text and accept whatever follows it.
Value parseJson(const std::string& text) {
  if (text.find('\0') != std::string::npos) return Value();
  const nlohmann::json doc = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  Value out;
  if (doc.is_discarded() || !valueOfJson(doc, 0, &out)) return Value();
  return out;
}

// The poll state of an answer: its "mr_errcode" as a number (or a numeral),
// kMissingState when there is none.
std::int64_t pollState(const Dictionary& answer) {
  const Value* v = answer.find("mr_errcode");
  if (!v || !(v->isNumber() || v->isString())) return kMissingState;
  return answer.mrApi_integerForKey("mr_errcode");
}

// The body length an answer announced, for the 32-bit field: none (0) for a
// negative one, and the field's largest value for one beyond it, which no
// body reaches (so the answer reads as cut short instead of as complete
// after the low 32 bits).
std::uint32_t announcedLength(std::int64_t length) {
  if (length <= 0) return 0;
  if (static_cast<std::uint64_t>(length) > std::numeric_limits<std::uint32_t>::max()) {
    return std::numeric_limits<std::uint32_t>::max();
  }
  return static_cast<std::uint32_t>(length);
}

std::string errorDescription(const platform::HttpError& error) {
  return format("Error Domain=%@ Code=%ld \"%@\"", error.domain, error.code, error.localizedDescription);
}

}  // namespace

MireloAuthSDK::MireloAuthSDK() = default;

MireloAuthSDK::~MireloAuthSDK() {
  mrlog::line("dealloc");
  resetAll();
  respData_.clear();
}

bool MireloAuthSDK::Auth(const String& appId, const String& nonceStr, const String& timeStamp, const String& scope,
                         const String& signature, const String& schemeData) {
  return Auth(appId, nonceStr, timeStamp, scope, signature, schemeData, nullptr);
}

bool MireloAuthSDK::Auth(const String& appId, const String& nonceStr, const String& timeStamp, const String& scope,
                         const String& signature, const String& schemeData, MireloAuthStartResult* result) {
  requireMainThread("MireloAuthSDK::Auth");
  if (result) *result = MireloAuthStartResult{};
  if (isAuthing_) {
    if (result) *result = {MireloAuthRefusal::kAlreadyRunning, "a sign-in session is running"};
    return false;
  }
  mrlog::line("Auth: appId:%@", appId);
  const std::string text =
      format("%@/connect/sdk/qrconnect?appid=%@&noncestr=%@&timestamp=%@&scope=%@&signature=%@&scheme_data=%@",
             kMireloOpenPlatformBaseUrl, appId, nonceStr, timeStamp, scope, signature, schemeData);
  const String escaped = String(text).stringByAddingPercentEscapes();
  return sendAuthRequest(escaped.isNull() ? std::nullopt : URL::fromString(escaped.str()), result);
}

bool MireloAuthSDK::StopAuth() {
  requireMainThread("MireloAuthSDK::StopAuth");
  mrlog::line("StopAuth");
  resetAll();
  return true;
}

bool MireloAuthSDK::sendAuthRequest(const std::optional<URL>& url, MireloAuthStartResult* result) {
  if (!url) {
    if (result) *result = {MireloAuthRefusal::kInvalidUrl, "the sign-in parameters make no URL"};
    return false;
  }
  resetAll();
  mrlog::line("sendAuthRequest\xEF\xBC\x9A%@", *url);
  if (!connect(url->absoluteString(), kDefaultTimeoutSeconds)) {
    if (result) *result = {MireloAuthRefusal::kNoConnection, "connection is nil"};
    return false;
  }
  isAuthing_ = true;
  return true;
}

bool MireloAuthSDK::connect(const std::string& urlText, double timeoutSeconds) {
  platform::HttpRequest request;
  request.url = urlText;
  request.cachePolicy = platform::URLRequestCachePolicy::ReloadIgnoringLocalCacheData;
  request.timeoutSeconds = timeoutSeconds;
  const auto& http = platform::current().http;
  connection_ = http ? http->connect(request, this) : nullptr;
  if (!connection_) {
    mrlog::error("connection is nil");
    return false;
  }
  return true;
}

void MireloAuthSDK::resetConnection() {
  mrlog::line("resetConnection");
  if (connection_) {
    // Dropped before cancel returns, so that a late event finds none.
    const auto old = std::move(connection_);
    connection_ = nullptr;
    old->cancel();
  }
  stopTimeoutCheck();
  retContentLength_ = 0;
  respData_.clear();
  httpRetStatusCode_ = 0;
}

void MireloAuthSDK::resetAll() {
  mrlog::line("resetAll");
  resetConnection();
  status_ = 0;
  uuid_ = String();
  qrCodeData_ = Data();
  authCode_ = String();
  isAuthing_ = false;
  lastState_ = 0;
  // Whatever still refers to the session that ends here is stale from now.
  ++session_;
}

void MireloAuthSDK::startTimeoutCheck() {
  stopTimeoutCheck();
  const std::weak_ptr<bool> self = alive_;
  timer_ = platform::current().runLoop->scheduleTimer(kRepollSeconds, false, [this, self, session = session_] {
    // A timer of an ended session (or of a destroyed object) does nothing.
    if (self.expired() || session != session_) return;
    timer_ = 0;
    startPolling();
  });
}

void MireloAuthSDK::stopTimeoutCheck() {
  if (timer_ == 0) return;
  platform::current().runLoop->invalidateTimer(timer_);
  timer_ = 0;
}

void MireloAuthSDK::startPolling() {
  resetConnection();
  if (uuid_.isNull() || uuid_.empty()) {
    mrlog::error("startPolling uuid is nil");
    handleError(kMireloAuthFailed);
    return;
  }
  mrlog::line("startPolling");
  // The session id comes from the server: escaped like the QR request, so
  // that an odd one cannot break the URL.
  const std::string text = format("%@/connect/l/qrconnect?uuid=%@&last=%ld&f=json", kMireloLongPollBaseUrl, uuid_,
                                  lastState_);
  const String escaped = String(text).stringByAddingPercentEscapes();
  if (escaped.isNull()) {
    mrlog::error("connection is nil");
    return;
  }
  connect(escaped.str(), kPollTimeoutSeconds);
}

void MireloAuthSDK::finish(int errCode, const String& code) {
  // The session is over before the host hears of it, so that the host may
  // start a new one (or drop this object) from inside the call.
  const String kept = code;
  resetAll();
  if (const auto d = delegate.lock()) d->onAuthFinish(errCode, kept);
}

void MireloAuthSDK::handleError(int errCode) {
  mrlog::error("_delegate:%@, errCode:%d", delegateDescription(), errCode);
  finish(errCode, authCode_);
}

void MireloAuthSDK::handleGotQrcode() {
  mrlog::line("_delegate:%@, self.qrCodeData:%@", delegateDescription(), qrCodeData_);
  if (qrCodeData_.isNull() || qrCodeData_.size() == 0) {
    handleError(kMireloAuthNoQrcode);
    return;
  }
  const auto& codec = platform::current().imageCodec;
  const std::shared_ptr<platform::Image> image = codec ? codec->decode(qrCodeData_) : nullptr;
  mrlog::line("_delegate:%@, qrCodeImg:%@", delegateDescription(),
              image ? String(format("<Image: %p>, {%d, %d}", static_cast<const void*>(image.get()),
                                    image->width(), image->height()))
                    : String());
  const std::weak_ptr<bool> self = alive_;
  const std::uint64_t session = session_;
  if (const auto d = delegate.lock()) d->onAuthGotQrcode(image);
  // The host may have stopped the session (and started another one), or
  // dropped this object.
  if (!stillCurrent(self, session)) return;
  status_ = 1;
  startPolling();
}

void MireloAuthSDK::handleResponse(const String& text) {
  if (text.isNull() || text.empty()) {
    mrlog::error("resp is nil");
    handleError(kMireloAuthFailed);
    return;
  }
  const Value result = parseJson(text.str());
  mrlog::line("status:%d, dictResponse:%@", status_, result);
  const Dictionary* answer = result.asDictionary();
  if (status_ == 0) {
    if (!answer) {
      handleError(kMireloAuthNoQrcode);
      return;
    }
    (void)answer->mrApi_integerForKey("errcode");
    if (const String id = answer->mrApi_stringForKey("uuid"); !id.isNull()) uuid_ = id;
    if (const Dictionary* qrcode = answer->mrApi_dictionaryForKey("qrcode")) {
      (void)qrcode->mrApi_integerForKey("qrcodelength");
      const String base64 = qrcode->mrApi_stringForKey("qrcodebase64");
      const auto& crypto = platform::current().crypto;
      if (!base64.isNull() && crypto) qrCodeData_ = crypto->base64Decode(base64.str());
    }
    handleGotQrcode();
    return;
  }
  if (!answer) {
    handleError(kMireloAuthFailed);
    return;
  }
  const std::int64_t state = pollState(*answer);
  if (const String code = answer->mrApi_stringForKey("mr_code"); !code.isNull()) authCode_ = code;
  switch (state) {
    case 401:
    case 406:
    case 408:
      lastState_ = state;
      startTimeoutCheck();
      return;
    case 404: {
      if (status_ != 2) {
        status_ = 2;
        const std::weak_ptr<bool> self = alive_;
        const std::uint64_t session = session_;
        if (const auto d = delegate.lock()) d->onQrcodeScanned();
        if (!stillCurrent(self, session)) return;
      }
      lastState_ = state;
      startTimeoutCheck();
      return;
    }
    case 405:
      finish(kMireloAuthSuccess, authCode_);
      return;
    case 402:
      handleError(kMireloAuthState402);
      return;
    case 403:
      handleError(kMireloAuthState403);
      return;
    default:  // 407, 500, a missing state and every unknown one
      handleError(kMireloAuthFailed);
      return;
  }
}

// ---- connection events ----

void MireloAuthSDK::didReceiveResponse(const platform::HttpResponse& response) {
  mrlog::line("didReceiveResponse resp dicResp:%@", Value(response.allHeaderFields));
  if (response.expectedContentLength >= 1) {
    retContentLength_ = announcedLength(response.expectedContentLength);
  } else {
    retContentLength_ = announcedLength(response.allHeaderFields.mrApi_integerForKey("Content-Length"));
  }
  httpRetStatusCode_ = response.statusCode;
}

void MireloAuthSDK::didReceiveData(const Data& data) {
  mrlog::line("didReceiveData data length:%ld", data.size());
  if (respData_.size() + data.size() > kMaxAnswerBytes) {
    mrlog::error("resp is too large, length:%ld", respData_.size() + data.size());
    handleError(kMireloAuthFailed);
    return;
  }
  respData_.insert(respData_.end(), data.bytes(), data.bytes() + data.size());
}

void MireloAuthSDK::didFailWithError(const platform::HttpError& error) {
  mrlog::error("connection fail, error:%@", errorDescription(error));
  finish(kMireloAuthConnectionFailed, String());
}

void MireloAuthSDK::didFinishLoading() {
  const std::string body(respData_.begin(), respData_.end());
  const String text = isWellFormedUtf8(body) ? String(body) : String();
  mrlog::line("connectionDidFinishLoading, code:%@", Value(httpRetStatusCode_));
  if (httpRetStatusCode_ != 200 && httpRetStatusCode_ != 206) {
    handleError(kMireloAuthConnectionFailed);
  } else if (respData_.size() >= retContentLength_) {
    resetConnection();
    handleResponse(text);
  } else {
    handleError(kMireloAuthFailed);
  }
}

String MireloAuthSDK::delegateDescription() const {
  const auto d = delegate.lock();
  return d ? String(format("<MireloAuthAPIDelegate: %p>", static_cast<const void*>(d.get()))) : String();
}

}  // namespace mirelo

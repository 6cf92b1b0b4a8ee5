// Composition of a log line and its hand-over to the shared logger.

#include "util/Log.h"

#include "mirelo/platform/Platform.h"
#include "util/MireloApiUtil.h"

namespace mirelo::mrlog {

namespace {

// The query key under which launch and answer URLs carry the keychain token.
constexpr std::string_view kTokenKey = "mirelo_auth_token=";
// The most tokens of one line shown as digests.
constexpr std::size_t kMaxDigestsPerLine = 32;

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string percentDecoded(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
      out.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
      i += 2;
    } else {
      out.push_back(text[i]);
    }
  }
  return out;
}

bool endsValue(char c) {
  return c == '&' || c == '#' || c == '"' || c == '\'' || c == ',' || c == ' ' || c == '\n' || c == '\t' ||
         c == '>' || c == ')' || c == ']' || c == '}';
}

}  // namespace

// Every token a line quotes in a URL becomes "sha256:" and the first 16 hex
// digits of its SHA-256 (the same digest the token store logs in full), so
// that no sink ever sees a token while a line can still be matched to one.
// The line is copied once, piece by piece: each byte is looked at once.
std::string redactSecrets(std::string_view line) {
  std::string out;
  out.reserve(line.size());
  std::string_view lastRaw;
  std::string lastMask;
  std::size_t digests = 0;
  std::size_t from = 0;
  std::size_t at = 0;
  while ((at = line.find(kTokenKey, from)) != std::string_view::npos) {
    const std::size_t begin = at + kTokenKey.size();
    std::size_t end = begin;
    while (end < line.size() && !endsValue(line[end])) ++end;
    out.append(line.substr(from, begin - from));
    if (end > begin) {
      const std::string_view raw = line.substr(begin, end - begin);
      // A line that repeats one token (a hostile URL may, thousands of
      // times) digests it once.
      // Past kMaxDigestsPerLine different ones, the rest are only hidden.
      if (raw != lastRaw) {
        lastRaw = raw;
        lastMask = ++digests <= kMaxDigestsPerLine
                       ? "sha256:" + MireloApiUtil::sha256(String(percentDecoded(raw))).substr(0, 16)
                       : std::string("(redacted)");
      }
      out.append(lastMask);
    }
    from = end;
  }
  out.append(line.substr(from));
  return out;
}

namespace {
thread_local ErrorCapture* tCapture = nullptr;
}  // namespace

ErrorCapture::ErrorCapture() : outer_(tCapture) { tCapture = this; }
ErrorCapture::~ErrorCapture() { tCapture = outer_; }
bool capturing() { return tCapture != nullptr; }

void emit(std::string_view prefix, const std::string& message, std::int64_t level, bool toSystemLog) {
  if (tCapture != nullptr && prefix == "mrlog:Error:" && tCapture->first_.empty()) {
    tCapture->first_ = redactSecrets(message);
  }
  std::string line;
  line.reserve(prefix.size() + message.size());
  line.append(prefix);
  line.append(message);
  if (line.find(kTokenKey) != std::string::npos) line = redactSecrets(line);
  if (MRLogUtil::sharedInstance().printLog(line, level) || !toSystemLog) return;
  if (const auto& systemLog = platform::current().systemLog) systemLog->write(line);
}

}  // namespace mirelo::mrlog

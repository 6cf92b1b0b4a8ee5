// printf-style formatting of the kit's fixed message texts.
//
// The kit's messages are fixed format strings ("send req[%@], appID:%@").
// format() fills them the way the platform's string formatter does:
//   %@        an object's description; a null object prints "(null)"
//   %d %i %u %x %X %o %c  32-bit conversions (the argument is truncated)
//   %ld %lu %lld %llu %zu %zd %qd  64-bit conversions
//   %f %g %e  reals;  %s  text;  %p  an address as 0x...;  %%  a percent sign
// Flags, width and precision are honoured for numbers.  Booleans are 1 and 0.
// Missing arguments print as "(null)"; surplus ones are ignored.  Never throws.
#pragma once

#include <cstdint>
#include <concepts>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "mirelo/Data.h"
#include "mirelo/String.h"
#include "mirelo/Value.h"

namespace mirelo {

template <class T>
concept HasDescribe = requires(const T& t) {
  { describe(t) } -> std::convertible_to<std::string>;
};
template <class T>
concept HasDescriptionMethod = requires(const T& t) {
  { t.description() } -> std::convertible_to<std::string>;
};

template <class T>
std::string describeObject(const T& obj) {
  if constexpr (HasDescribe<T>) {
    return describe(obj);
  } else if constexpr (HasDescriptionMethod<T>) {
    return obj.description();
  } else {
    return "<object>";
  }
}

class FormatArg {
 public:
  enum class Kind { Null, Int, UInt, Real, Text, Pointer };

  FormatArg(std::nullptr_t) {}
  FormatArg(bool b) : kind_(Kind::Int), i_(b ? 1 : 0) {}
  template <class T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>, int> = 0>
  FormatArg(T v) {
    if constexpr (std::is_signed_v<T>) { kind_ = Kind::Int; i_ = static_cast<std::int64_t>(v); }
    else { kind_ = Kind::UInt; u_ = static_cast<std::uint64_t>(v); }
  }
  template <class T, std::enable_if_t<std::is_enum_v<T>, int> = 0>
  FormatArg(T v) : FormatArg(static_cast<std::underlying_type_t<T>>(v)) {}
  FormatArg(double d) : kind_(Kind::Real), d_(d) {}
  FormatArg(float f) : kind_(Kind::Real), d_(f) {}
  FormatArg(const char* s) { if (s) { kind_ = Kind::Text; text_ = s; } }
  FormatArg(const std::string& s) : kind_(Kind::Text), text_(s) {}
  FormatArg(std::string_view s) : kind_(Kind::Text), text_(s) {}
  FormatArg(const String& s) { if (!s.isNull()) { kind_ = Kind::Text; text_ = s.str(); } }
  FormatArg(const Data& d) { if (!d.isNull()) { kind_ = Kind::Text; text_ = d.description(); } }
  FormatArg(const Value& v);
  FormatArg(const void* p) : kind_(Kind::Pointer), u_(reinterpret_cast<std::uintptr_t>(p)) {}
  template <class T>
  FormatArg(const std::optional<T>& o) { if (o) *this = FormatArg(*o); }
  // Objects print their description: a free describe(obj) found by lookup
  // when there is one (for classes whose "description" is a data field),
  // else obj.description().  A null pointer prints "(null)".
  template <class T>
  FormatArg(const std::shared_ptr<T>& p) { if (p) { kind_ = Kind::Text; text_ = describeObject(*p); } }
  template <class T, std::enable_if_t<std::is_class_v<T> && (HasDescribe<T> || HasDescriptionMethod<T>), int> = 0>
  FormatArg(const T& obj) : kind_(Kind::Text), text_(describeObject(obj)) {}

  Kind kind() const { return kind_; }
  std::int64_t i() const { return i_; }
  std::uint64_t u() const { return u_; }
  double d() const { return d_; }
  const std::string& text() const { return text_; }

 private:
  Kind kind_ = Kind::Null;
  std::int64_t i_ = 0;
  std::uint64_t u_ = 0;
  double d_ = 0;
  std::string text_;
};

// With `maxArgBytes`, the text of every %@ and %s argument longer than that
// is cut at a character boundary and ends in a marker giving its full
// length: "...[cut: 16777216 bytes]" (see cutText).
std::string formatArgs(std::string_view fmt, std::initializer_list<FormatArg> args,
                       std::size_t maxArgBytes = std::string_view::npos);

template <class... A>
std::string format(std::string_view fmt, const A&... args) {
  return formatArgs(fmt, {FormatArg(args)...});
}

// format() for a log line: every value cut to `maxArgBytes`.
template <class... A>
std::string formatBounded(std::size_t maxArgBytes, std::string_view fmt, const A&... args) {
  return formatArgs(fmt, {FormatArg(args)...}, maxArgBytes);
}

// `text` when it has at most `maxBytes` bytes; otherwise its first bytes up
// to the last whole UTF-8 character within `maxBytes`, then
// "...[cut: <full length> bytes]".
std::string cutText(std::string text, std::size_t maxBytes);

}  // namespace mirelo

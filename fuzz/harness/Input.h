// Reading a fuzz input in pieces.  Every read is bounded by what is left and
// answers a shorter (possibly empty) piece once the input runs out, so that
// any byte string is a valid input of every target.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace mirelo::fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : text_(reinterpret_cast<const char*>(data), size) {}
  explicit Input(std::string_view text) : text_(text) {}

  bool empty() const { return text_.empty(); }
  std::size_t left() const { return text_.size(); }

  // The next byte, or 0 when the input is used up.
  std::uint8_t byte() {
    if (text_.empty()) return 0;
    const auto b = static_cast<std::uint8_t>(text_.front());
    text_.remove_prefix(1);
    return b;
  }
  // Two bytes, big-endian.
  std::uint16_t u16() {
    const std::uint16_t hi = byte();
    return static_cast<std::uint16_t>((hi << 8) | byte());
  }
  // The next `n` bytes (fewer when the input ends first).
  std::string_view bytes(std::size_t n) {
    const std::string_view piece = text_.substr(0, n);
    text_.remove_prefix(piece.size());
    return piece;
  }
  // Up to the first `separator` (consumed, not returned), or everything left.
  std::string_view until(std::string_view separator) {
    const std::size_t at = text_.find(separator);
    if (at == std::string_view::npos) return rest();
    const std::string_view piece = text_.substr(0, at);
    text_.remove_prefix(at + separator.size());
    return piece;
  }
  std::string_view line() { return until("\n"); }
  std::string_view rest() {
    const std::string_view piece = text_;
    text_ = std::string_view();
    return piece;
  }

 private:
  std::string_view text_;
};

// Percent-escapes every byte except the unreserved characters of a URL
// (letters, digits, "-._~"), so that any bytes travel through a query value.
inline std::string escapeAll(std::string_view bytes) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(bytes.size() * 3);
  for (const char ch : bytes) {
    const auto c = static_cast<unsigned char>(ch);
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                       c == '.' || c == '_' || c == '~';
    if (plain) {
      out.push_back(ch);
    } else {
      out.push_back('%');
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 0x0F]);
    }
  }
  return out;
}

}  // namespace mirelo::fuzz

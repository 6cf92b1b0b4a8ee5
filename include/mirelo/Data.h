// Immutable, shared byte buffers.
//
// A Data never changes after it is made, so copies share the bytes: a large
// payload travels from a media object through the record onto the pasteboard
// without being copied.  A Data may be a slice of a larger buffer (a decoded
// property list refers to its input this way).  A default Data is null; a
// Data of zero bytes is empty but not null, as the protocol distinguishes the
// two where a field is "set".
#pragma once

#include <iosfwd>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace mirelo {

class Data {
 public:
  Data() = default;  // null

  // Copies the bytes.
  static Data copy(const void* bytes, std::size_t size);
  static Data copy(std::string_view bytes) { return copy(bytes.data(), bytes.size()); }
  // Takes over the buffer without copying.
  static Data adopt(std::vector<std::uint8_t>&& bytes);
  static Data adopt(std::string&& bytes);
  // A zero-length, non-null Data.
  static Data emptyData();
  // Allocates `size` uninitialised bytes and lets `fill` write them once;
  // the result is immutable afterwards.  Used by encoders that know their
  // output size in advance.
  template <class Fill>
  static Data build(std::size_t size, Fill&& fill) {
    std::shared_ptr<std::uint8_t[]> buf(new std::uint8_t[size == 0 ? 1 : size]);
    fill(buf.get());
    Data d;
    d.owner_ = std::shared_ptr<const void>(buf, buf.get());
    d.ptr_ = buf.get();
    d.size_ = size;
    return d;
  }

  bool isNull() const { return owner_ == nullptr; }
  // True for null and zero-length data.
  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  std::size_t length() const { return size_; }
  const std::uint8_t* bytes() const { return ptr_; }
  std::string_view view() const {
    return std::string_view(reinterpret_cast<const char*>(ptr_), size_);
  }
  std::string toString() const { return std::string(view()); }

  // A view of part of this buffer that keeps the whole buffer alive.  The
  // range is clamped to the buffer.
  Data slice(std::size_t offset, std::size_t size) const;

  // True when both refer to the same bytes in memory (no copy was made).
  bool sharesStorageWith(const Data& other) const { return owner_ && owner_ == other.owner_; }

  // Lower-case hex of the first `maxBytes` bytes, for diagnostics.
  std::string hexPrefix(std::size_t maxBytes) const;
  // "{length = N, bytes = 0x...}" like the platform prints data; "(null)" when null.
  std::string description() const;

  friend bool operator==(const Data& a, const Data& b);

 private:
  std::shared_ptr<const void> owner_;
  const std::uint8_t* ptr_ = nullptr;
  std::size_t size_ = 0;
};

// Prints the value readably where a test framework shows it (GoogleTest
// finds PrintTo by argument-dependent lookup): "Data(5 bytes: 68656c6c6f)",
// at most 32 bytes shown, or "Data(null)".
void PrintTo(const Data& d, std::ostream* os);

}  // namespace mirelo

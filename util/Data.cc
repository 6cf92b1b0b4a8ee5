#include "mirelo/Data.h"

#include <algorithm>
#include <cstring>

namespace mirelo {

namespace {
// Storage for zero-length data: non-null, no bytes.
const std::uint8_t kNoBytes[1] = {0};
}  // namespace

Data Data::copy(const void* bytes, std::size_t size) {
  return build(size, [&](std::uint8_t* out) {
    if (size != 0) std::memcpy(out, bytes, size);
  });
}

Data Data::adopt(std::vector<std::uint8_t>&& bytes) {
  auto holder = std::make_shared<std::vector<std::uint8_t>>(std::move(bytes));
  Data d;
  d.ptr_ = holder->empty() ? kNoBytes : holder->data();
  d.size_ = holder->size();
  d.owner_ = std::move(holder);
  return d;
}

Data Data::adopt(std::string&& bytes) {
  auto holder = std::make_shared<std::string>(std::move(bytes));
  Data d;
  d.ptr_ = reinterpret_cast<const std::uint8_t*>(holder->data());
  d.size_ = holder->size();
  d.owner_ = std::move(holder);
  return d;
}

Data Data::emptyData() {
  Data d;
  // A real owner, so that the result is not null.
  d.owner_ = std::make_shared<int>(0);
  d.ptr_ = kNoBytes;
  d.size_ = 0;
  return d;
}

Data Data::slice(std::size_t offset, std::size_t size) const {
  Data d;
  if (isNull()) return d;
  offset = std::min(offset, size_);
  size = std::min(size, size_ - offset);
  d.owner_ = owner_;
  d.ptr_ = ptr_ + offset;
  d.size_ = size;
  return d;
}

std::string Data::hexPrefix(std::size_t maxBytes) const {
  static const char* kHex = "0123456789abcdef";
  std::size_t n = std::min(maxBytes, size_);
  std::string out;
  out.reserve(n * 2);
  for (std::size_t i = 0; i < n; ++i) {
    out.push_back(kHex[ptr_[i] >> 4]);
    out.push_back(kHex[ptr_[i] & 0xF]);
  }
  return out;
}

std::string Data::description() const {
  if (isNull()) return "(null)";
  std::string out = "{length = " + std::to_string(size_) + ", bytes = 0x";
  if (size_ <= 24) {
    out += hexPrefix(size_);
  } else {
    out += hexPrefix(8) + " ... ";
    static const char* kHex = "0123456789abcdef";
    for (std::size_t i = size_ - 4; i < size_; ++i) {
      out.push_back(kHex[ptr_[i] >> 4]);
      out.push_back(kHex[ptr_[i] & 0xF]);
    }
  }
  out += "}";
  return out;
}

bool operator==(const Data& a, const Data& b) {
  if (a.isNull() || b.isNull()) return a.isNull() == b.isNull();
  return a.size_ == b.size_ && (a.ptr_ == b.ptr_ || std::memcmp(a.ptr_, b.ptr_, a.size_) == 0);
}

}  // namespace mirelo

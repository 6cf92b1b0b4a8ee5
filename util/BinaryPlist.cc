// The binary property-list codec (bplist00).
//
// Layout of a file: the 8-byte header "bplist00", the objects, the offset
// table (one big-endian offset per object, offsetSize bytes each) and a
// 32-byte trailer: 6 unused bytes, offsetSize, refSize, the object count,
// the top object's index and the offset table's position (8 bytes each,
// big-endian).  An object starts with a marker byte whose high nibble is its
// type and whose low nibble is a size or count; a count of 15 or more is
// written as 0xF followed by an integer object.  Containers hold refSize-byte
// indices into the offset table.
//
// Encoding lays objects out in the platform writer's order: a container
// first, then its keys, then its values (each value followed by its own
// contents).  Nothing is shared between objects, so the object graph is a
// tree.  A first pass walks the value, records every object with the size
// of its subtree and adds up the output size; the second pass writes into a
// buffer allocated once at that exact size (a few bytes more when a large
// payload is lined up with its source, see Encoder::write).
//
// Decoding checks the trailer and the whole offset table first, then builds
// the value from the top object down.  Every read is bounded by the start of
// the offset table.  Because an object may be referenced from many places,
// a small file can describe a huge tree (a chain of arrays that each refer
// twice to the next); the number of values and of string bytes built is
// therefore capped in proportion to the input size.
#include "util/BinaryPlist.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

namespace mirelo::bplist {

namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;
constexpr char kMagic[] = "bplist00";

// Marker types (the high nibble).
enum : unsigned {
  kSimple = 0x0,  // 0x00 null, 0x08 false, 0x09 true, 0x0F fill
  kInt = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kAscii = 0x5,
  kUtf16 = 0x6,
  kUid = 0x8,
  kArray = 0xA,
  kSet = 0xC,
  kDict = 0xD,
};

// The width the platform's writer picks for an unsigned quantity.
unsigned byteCount(std::uint64_t v) {
  if (v <= 0xFF) return 1;
  if (v <= 0xFFFF) return 2;
  if (v <= 0xFFFFFFFFu) return 4;
  return 8;
}

unsigned log2Width(unsigned width) {
  switch (width) {
    case 1: return 0;
    case 2: return 1;
    case 4: return 2;
    case 8: return 3;
    default: return 4;  // 16
  }
}

inline void putBE(std::uint8_t*& p, std::uint64_t v, unsigned width) {
  for (unsigned i = 0; i < width; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * (width - 1 - i)));
  p += width;
}

inline std::uint64_t getBE(const std::uint8_t* p, unsigned width) {
  std::uint64_t v = 0;
  for (unsigned i = 0; i < width; ++i) v = (v << 8) | p[i];
  return v;
}

// *out = a + b; true when that overflows.
inline bool addOverflows(std::size_t a, std::size_t b, std::size_t* out) {
  if (a > std::numeric_limits<std::size_t>::max() - b) return true;
  *out = a + b;
  return false;
}

// *out = a * b; true when that overflows.
inline bool mulOverflows(std::size_t a, std::size_t b, std::size_t* out) {
  if (b != 0 && a > std::numeric_limits<std::size_t>::max() / b) return true;
  *out = a * b;
  return false;
}

// ---------------------------------------------------------------------------
// UTF-8 <-> UTF-16

// Scans UTF-8 text.  False when it is not valid UTF-8 (overlong forms,
// surrogates and values above U+10FFFF included).  `*ascii` tells whether
// every byte is below 0x80; `*units` is the UTF-16 length.
bool scanUtf8(std::string_view s, bool* ascii, std::size_t* units) {
  const auto* p = reinterpret_cast<const std::uint8_t*>(s.data());
  const auto* end = p + s.size();
  while (p != end && *p < 0x80) ++p;
  if (p == end) {
    *ascii = true;
    *units = s.size();
    return true;
  }
  *ascii = false;
  std::size_t n = static_cast<std::size_t>(p - reinterpret_cast<const std::uint8_t*>(s.data()));
  while (p != end) {
    std::uint8_t c = *p;
    if (c < 0x80) {
      ++p;
      ++n;
      continue;
    }
    std::size_t len;
    std::uint32_t cp;
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2;
      cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3;
      cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (static_cast<std::size_t>(end - p) < len) return false;
    for (std::size_t i = 1; i < len; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (p[i] & 0x3F);
    }
    if ((len == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) ||
        (len == 4 && (cp < 0x10000 || cp > 0x10FFFF))) {
      return false;
    }
    n += cp >= 0x10000 ? 2 : 1;
    p += len;
  }
  *units = n;
  return true;
}

// Writes valid UTF-8 text as UTF-16BE.
std::uint8_t* writeUtf16BE(std::string_view s, std::uint8_t* out) {
  const auto* p = reinterpret_cast<const std::uint8_t*>(s.data());
  const auto* end = p + s.size();
  auto put = [&out](std::uint32_t u) {
    *out++ = static_cast<std::uint8_t>(u >> 8);
    *out++ = static_cast<std::uint8_t>(u);
  };
  while (p != end) {
    std::uint8_t c = *p;
    std::uint32_t cp;
    if (c < 0x80) {
      cp = c;
      p += 1;
    } else if (c < 0xE0) {
      cp = ((c & 0x1Fu) << 6) | (p[1] & 0x3Fu);
      p += 2;
    } else if (c < 0xF0) {
      cp = ((c & 0x0Fu) << 12) | ((p[1] & 0x3Fu) << 6) | (p[2] & 0x3Fu);
      p += 3;
    } else {
      cp = ((c & 0x07u) << 18) | ((p[1] & 0x3Fu) << 12) | ((p[2] & 0x3Fu) << 6) | (p[3] & 0x3Fu);
      p += 4;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      put(0xD800 + (cp >> 10));
      put(0xDC00 + (cp & 0x3FF));
    } else {
      put(cp);
    }
  }
  return out;
}

// ---------------------------------------------------------------------------
// Encoder

enum class Kind : std::uint8_t { Scalar, AsciiString, Utf16String, AsciiKey, Utf16Key, Array, Dict };

struct Obj {
  const void* ptr;      // the Value, or the std::string of a dictionary key
  std::size_t subtree;  // objects in this object's subtree, itself included
  std::size_t units;    // strings: bytes (ASCII) or UTF-16 code units
  std::size_t bytes;    // size in the file, references not included
  std::size_t refs;     // references held (containers)
  Kind kind;
};

// Payloads at least this large are placed so that their bytes keep the page
// offset they have in memory (see Encoder::write).
constexpr std::size_t kAlignedPayload = std::size_t{1} << 20;
constexpr std::size_t kPage = 4096;

class Encoder {
 public:
  void reserve(std::size_t n) { objs_.reserve(n); }
  bool plan(const Value& v, unsigned depth);
  Data write();
  std::string error;

 private:
  bool planString(const std::string& s, bool key);
  void add(const void* ptr, Kind kind, std::size_t bytes, std::size_t refs = 0, std::size_t units = 0) {
    objs_.push_back(Obj{ptr, 1, units, bytes, refs, kind});
    if (addOverflows(bytes_, bytes, &bytes_) || addOverflows(refs_, refs, &refs_)) overflow_ = true;
  }
  void writeAt(std::uint8_t* out, unsigned refSize, unsigned offsetSize, std::size_t tableOffset) const;
  static std::size_t countHeader(std::size_t n) { return n < 15 ? 1 : 2 + byteCount(n); }
  static std::uint8_t* putHeader(std::uint8_t* p, unsigned type, std::size_t n) {
    if (n < 15) {
      *p++ = static_cast<std::uint8_t>((type << 4) | n);
    } else {
      *p++ = static_cast<std::uint8_t>((type << 4) | 0xF);
      unsigned w = byteCount(n);
      *p++ = static_cast<std::uint8_t>(0x10 | log2Width(w));
      putBE(p, n, w);
    }
    return p;
  }

  std::vector<Obj> objs_;
  std::size_t bytes_ = 0;  // object bytes without references
  std::size_t refs_ = 0;   // references held by containers
  bool overflow_ = false;
  std::size_t largest_ = 0;  // index of the largest data payload of kAlignedPayload or more, when any
  std::size_t largestSize_ = 0;
};

bool Encoder::planString(const std::string& s, bool key) {
  bool ascii = false;
  std::size_t units = 0;
  if (!scanUtf8(s, &ascii, &units)) {
    error = key ? "a dictionary key is not valid UTF-8" : "a string is not valid UTF-8";
    return false;
  }
  if (!ascii && units > std::numeric_limits<std::size_t>::max() / 4) overflow_ = true;
  const Kind k = ascii ? (key ? Kind::AsciiKey : Kind::AsciiString) : (key ? Kind::Utf16Key : Kind::Utf16String);
  add(&s, k, countHeader(units) + (ascii ? units : units * 2), 0, units);
  return true;
}

bool Encoder::plan(const Value& v, unsigned depth) {
  switch (v.type()) {
    case Value::Type::Null:
      error = "cannot encode a null value";
      return false;
    case Value::Type::Bool:
      add(&v, Kind::Scalar, 1);
      return true;
    case Value::Type::Int: {
      const std::int64_t i = *v.asInt();
      add(&v, Kind::Scalar, i < 0 ? 9 : 1 + byteCount(static_cast<std::uint64_t>(i)));
      return true;
    }
    case Value::Type::UInt: {
      const std::uint64_t u = *v.asUInt();
      add(&v, Kind::Scalar,
          u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) ? 17 : 1 + byteCount(u));
      return true;
    }
    case Value::Type::Real:
    case Value::Type::Date:
      add(&v, Kind::Scalar, 9);
      return true;
    case Value::Type::Uid:
      add(&v, Kind::Scalar, 1 + byteCount(v.asUid()->value));
      return true;
    case Value::Type::Data: {
      const std::size_t n = v.asData()->size();
      if (n >= kAlignedPayload && n > largestSize_) {
        largest_ = objs_.size();
        largestSize_ = n;
      }
      if (n > std::numeric_limits<std::size_t>::max() / 2) overflow_ = true;
      add(&v, Kind::Scalar, countHeader(n) + n);
      return true;
    }
    case Value::Type::String:
      return planString(*v.asString(), false);
    case Value::Type::Array: {
      if (depth >= static_cast<unsigned>(kMaxDepth)) {
        error = "containers nest deeper than " + std::to_string(kMaxDepth) + " levels";
        return false;
      }
      const Array& a = *v.asArray();
      const std::size_t self = objs_.size();
      add(&v, Kind::Array, countHeader(a.size()), a.size());
      for (std::size_t i = 0; i < a.size(); ++i) {
        if (!plan(a[i], depth + 1)) {
          if (a[i].isNull()) error = "cannot encode a null value (array element " + std::to_string(i) + ")";
          return false;
        }
      }
      objs_[self].subtree = objs_.size() - self;
      return true;
    }
    case Value::Type::Dictionary: {
      if (depth >= static_cast<unsigned>(kMaxDepth)) {
        error = "containers nest deeper than " + std::to_string(kMaxDepth) + " levels";
        return false;
      }
      const Dictionary& d = *v.asDictionary();
      const std::size_t self = objs_.size();
      add(&v, Kind::Dict, countHeader(d.size()), 2 * d.size());
      for (const auto& e : d) {
        if (!planString(e.first, true)) return false;
      }
      for (const auto& e : d) {
        if (!plan(e.second, depth + 1)) {
          if (e.second.isNull()) error = "cannot encode a null value (dictionary key \"" + e.first + "\")";
          return false;
        }
      }
      objs_[self].subtree = objs_.size() - self;
      return true;
    }
  }
  error = "unknown value type";
  return false;
}

Data Encoder::write() {
  const std::size_t numObjects = objs_.size();
  const unsigned refSize = byteCount(numObjects);
  std::size_t refBytes = 0;
  std::size_t tableOffset = 0;
  std::size_t total = 0;
  if (overflow_ || mulOverflows(refs_, refSize, &refBytes) || addOverflows(kHeaderSize, bytes_, &tableOffset) ||
      addOverflows(tableOffset, refBytes, &tableOffset)) {
    error = "the property list is too large to encode";
    return Data();
  }
  const unsigned offsetSize = byteCount(tableOffset);
  std::size_t tableBytes = 0;
  if (mulOverflows(numObjects, offsetSize, &tableBytes) || addOverflows(tableOffset, tableBytes, &total) ||
      addOverflows(total, kTrailerSize, &total)) {
    error = "the property list is too large to encode";
    return Data();
  }

  if (largestSize_ == 0 || total > std::numeric_limits<std::size_t>::max() - kPage) {
    return Data::build(total, [&](std::uint8_t* out) { writeAt(out, refSize, offsetSize, tableOffset); });
  }
  // A large payload is copied fastest when source and destination share
  // their offset within a memory page (a copy whose stores trail its loads
  // by a few hundred bytes stalls on the loads).  The file's layout fixes
  // where the payload sits in the output, so the output starts at the point
  // of a slightly larger buffer that lines the payload up with its source;
  // the result is a view of that buffer.
  std::size_t payloadOffset = kHeaderSize;
  for (std::size_t i = 0; i < largest_; ++i) payloadOffset += objs_[i].bytes + objs_[i].refs * refSize;
  payloadOffset += countHeader(largestSize_);
  const auto source = reinterpret_cast<std::uintptr_t>(static_cast<const Value*>(objs_[largest_].ptr)->asData()->bytes());
  std::size_t lead = 0;
  const Data buffer = Data::build(total + kPage - 1, [&](std::uint8_t* base) {
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(base) + payloadOffset;
    lead = static_cast<std::size_t>((source % kPage + kPage - at % kPage) % kPage);
    writeAt(base + lead, refSize, offsetSize, tableOffset);
  });
  return buffer.slice(lead, total);
}

void Encoder::writeAt(std::uint8_t* out, unsigned refSize, unsigned offsetSize, std::size_t tableOffset) const {
  const std::size_t numObjects = objs_.size();
  std::memcpy(out, kMagic, kHeaderSize);
  std::uint8_t* p = out + kHeaderSize;
  std::uint8_t* table = out + tableOffset;
  for (std::size_t i = 0; i < numObjects; ++i) {
    const Obj& o = objs_[i];
    putBE(table, static_cast<std::uint64_t>(p - out), offsetSize);
    switch (o.kind) {
      case Kind::AsciiString:
      case Kind::AsciiKey: {
        const std::string& s = o.kind == Kind::AsciiKey ? *static_cast<const std::string*>(o.ptr)
                                                         : *static_cast<const Value*>(o.ptr)->asString();
        p = putHeader(p, kAscii, s.size());
        if (!s.empty()) std::memcpy(p, s.data(), s.size());
        p += s.size();
        break;
      }
      case Kind::Utf16String:
      case Kind::Utf16Key: {
        const std::string& s = o.kind == Kind::Utf16Key ? *static_cast<const std::string*>(o.ptr)
                                                         : *static_cast<const Value*>(o.ptr)->asString();
        p = putHeader(p, kUtf16, o.units);
        p = writeUtf16BE(s, p);
        break;
      }
      case Kind::Array: {
        const Array& a = *static_cast<const Value*>(o.ptr)->asArray();
        p = putHeader(p, kArray, a.size());
        std::size_t child = i + 1;
        for (std::size_t k = 0; k < a.size(); ++k) {
          putBE(p, child, refSize);
          child += objs_[child].subtree;
        }
        break;
      }
      case Kind::Dict: {
        const Dictionary& d = *static_cast<const Value*>(o.ptr)->asDictionary();
        const std::size_t n = d.size();
        p = putHeader(p, kDict, n);
        for (std::size_t k = 0; k < n; ++k) putBE(p, i + 1 + k, refSize);
        std::size_t child = i + 1 + n;
        for (std::size_t k = 0; k < n; ++k) {
          putBE(p, child, refSize);
          child += objs_[child].subtree;
        }
        break;
      }
      case Kind::Scalar: {
        const Value& v = *static_cast<const Value*>(o.ptr);
        switch (v.type()) {
          case Value::Type::Bool:
            *p++ = *v.asBool() ? 0x09 : 0x08;
            break;
          case Value::Type::Int:
          case Value::Type::UInt: {
            const bool isInt = v.type() == Value::Type::Int;
            const std::uint64_t u = isInt ? static_cast<std::uint64_t>(*v.asInt()) : *v.asUInt();
            if (isInt && *v.asInt() < 0) {
              *p++ = 0x13;
              putBE(p, u, 8);
            } else if (u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
              *p++ = 0x14;
              putBE(p, 0, 8);
              putBE(p, u, 8);
            } else {
              unsigned w = byteCount(u);
              *p++ = static_cast<std::uint8_t>(0x10 | log2Width(w));
              putBE(p, u, w);
            }
            break;
          }
          case Value::Type::Real:
          case Value::Type::Date: {
            double d = v.isReal() ? *v.asReal() : v.asDate()->secondsSince2001;
            std::uint64_t bits;
            std::memcpy(&bits, &d, sizeof bits);
            *p++ = v.isReal() ? 0x23 : 0x33;
            putBE(p, bits, 8);
            break;
          }
          case Value::Type::Uid: {
            std::uint64_t u = v.asUid()->value;
            unsigned w = byteCount(u);
            *p++ = static_cast<std::uint8_t>(0x80 | (w - 1));
            putBE(p, u, w);
            break;
          }
          case Value::Type::Data: {
            const Data& data = *v.asData();
            p = putHeader(p, kData, data.size());
            if (data.size() != 0) std::memcpy(p, data.bytes(), data.size());
            p += data.size();
            break;
          }
          default:
            break;  // planned types only
        }
        break;
      }
    }
  }
  // Trailer.
  std::uint8_t* t = table;
  std::memset(t, 0, 6);
  t += 6;
  *t++ = static_cast<std::uint8_t>(offsetSize);
  *t++ = static_cast<std::uint8_t>(refSize);
  putBE(t, numObjects, 8);
  putBE(t, 0, 8);
  putBE(t, tableOffset, 8);
}

// ---------------------------------------------------------------------------
// Decoder

class Decoder {
 public:
  explicit Decoder(const Data& input) : input_(input), base_(input.bytes()), size_(input.size()) {}
  Value run();
  std::string error;

 private:
  bool readTrailer();
  // Each of these returns an empty result after a failure, with failed_ set
  // and `error` naming the reason.
  Value object(std::uint64_t index, unsigned depth);
  Value container(std::size_t off, std::uint64_t index, unsigned type, unsigned depth);
  std::string key(std::uint64_t index);
  std::string asciiString(std::size_t off, std::size_t start, std::size_t count);
  std::string utf16String(std::size_t off, std::size_t start, std::size_t count);
  // Reads the count of the object at `off` (marker's low nibble `nibble`);
  // `*start` receives the offset of its contents.
  bool count(std::size_t off, unsigned nibble, std::uint64_t* n, std::size_t* start) {
    if (nibble == 0xF) return longCount(off, n, start);
    *n = nibble;
    *start = off + 1;
    return true;
  }
  bool longCount(std::size_t off, std::uint64_t* n, std::size_t* start);
  // Whether `n` entries of `unit` bytes (1 to 16) fit in `room` bytes.
  static bool fits(std::uint64_t n, unsigned unit, std::size_t room) {
    if (n > room) return false;
    if (room <= (std::numeric_limits<std::size_t>::max() >> 4)) return n * unit <= room;
    return n <= room / unit;
  }
  std::uint64_t ref(const std::uint8_t* p) const { return read(p, refSize_); }
  bool checkRef(std::uint64_t index);
  bool countNode() {
    if (++nodes_ <= nodeLimit_) return true;
    return fail("shared objects expand to more than %" PRIu64 " values; refusing the input", nodeLimit_);
  }
  bool countStringBytes(std::size_t n);
  std::size_t offsetOf(std::uint64_t index) const {
    return static_cast<std::size_t>(read(base_ + table_ + index * offsetSize_, offsetSize_));
  }
  static std::uint64_t read(const std::uint8_t* p, unsigned width) {
    if (width == 1) return p[0];
    if (width == 2) return (static_cast<std::uint64_t>(p[0]) << 8) | p[1];
    return getBE(p, width);
  }

  [[gnu::format(printf, 2, 3)]] bool fail(const char* fmt, ...);
  [[gnu::format(printf, 3, 4)]] bool failAt(std::size_t off, const char* fmt, ...);

  const Data& input_;
  const std::uint8_t* base_;
  std::size_t size_;
  bool failed_ = false;
  unsigned offsetSize_ = 0;
  unsigned refSize_ = 0;
  std::uint64_t numObjects_ = 0;
  std::uint64_t top_ = 0;
  std::size_t table_ = 0;  // start of the offset table = end of the object area
  std::uint64_t nodes_ = 0;
  std::uint64_t nodeLimit_ = 0;
  std::uint64_t stringBytes_ = 0;
  std::uint64_t stringLimit_ = 0;
  std::uint8_t* onPath_ = nullptr;  // containers on the path from the top
  std::uint8_t smallPath_[256];
  std::vector<std::uint8_t> bigPath_;
  std::uint64_t current_ = 0;  // index of the object being read, for messages
};

bool Decoder::fail(const char* fmt, ...) {
  failed_ = true;
  char buf[256];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  error = buf;
  return false;
}

bool Decoder::failAt(std::size_t off, const char* fmt, ...) {
  failed_ = true;
  char buf[256];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  char head[80];
  std::snprintf(head, sizeof head, "object %" PRIu64 " at offset %zu: ", current_, off);
  error = std::string(head) + buf;
  return false;
}

bool Decoder::readTrailer() {
  if (input_.isNull() || size_ == 0) return fail("no bytes to decode");
  if (size_ < kHeaderSize || std::memcmp(base_, kMagic, kHeaderSize) != 0) {
    return fail("not a binary property list (the header is not \"bplist00\")");
  }
  if (size_ < kHeaderSize + 1 + 1 + kTrailerSize) {
    return fail("truncated: %zu bytes is too short for a binary property list", size_);
  }
  const std::uint8_t* t = base_ + size_ - kTrailerSize;
  offsetSize_ = t[6];
  refSize_ = t[7];
  numObjects_ = getBE(t + 8, 8);
  top_ = getBE(t + 16, 8);
  const std::uint64_t table = getBE(t + 24, 8);
  if (offsetSize_ < 1 || offsetSize_ > 8) return fail("trailer: offset size %u is not between 1 and 8", offsetSize_);
  if (refSize_ < 1 || refSize_ > 8) return fail("trailer: reference size %u is not between 1 and 8", refSize_);
  if (numObjects_ == 0) return fail("trailer: the object count is 0");
  if (top_ >= numObjects_) {
    return fail("trailer: top object %" PRIu64 " is not below the object count %" PRIu64, top_, numObjects_);
  }
  const std::size_t trailerStart = size_ - kTrailerSize;
  if (table < kHeaderSize + 1 || table >= trailerStart) {
    return fail("trailer: offset table position %" PRIu64 " is outside the file's object area", table);
  }
  table_ = static_cast<std::size_t>(table);
  // numObjects * offsetSize must fit between the table start and the trailer.
  if (numObjects_ > (trailerStart - table_) / offsetSize_) {
    return fail("trailer: an offset table of %" PRIu64 " entries of %u bytes at %zu runs into the trailer",
                numObjects_, offsetSize_, table_);
  }
  for (std::uint64_t i = 0; i < numObjects_; ++i) {
    const std::uint64_t off = read(base_ + table_ + i * offsetSize_, offsetSize_);
    if (off < kHeaderSize || off >= table) {
      return fail("offset table: object %" PRIu64 " has offset %" PRIu64 ", outside the object area (%zu to %zu)",
                  i, off, kHeaderSize, table_ - 1);
    }
  }
  // Every value built costs memory; a file whose objects are shared can
  // describe far more values than it holds.  Both bounds are linear in the
  // input: an ordinary file stays far below them.
  nodeLimit_ = 16 * numObjects_ + size_ + 65536;
  stringLimit_ = 16 * static_cast<std::uint64_t>(size_) + (1u << 20);
  if (numObjects_ <= sizeof smallPath_) {
    std::memset(smallPath_, 0, static_cast<std::size_t>(numObjects_));
    onPath_ = smallPath_;
  } else {
    bigPath_.assign(static_cast<std::size_t>(numObjects_), 0);
    onPath_ = bigPath_.data();
  }
  return true;
}

bool Decoder::countStringBytes(std::size_t n) {
  stringBytes_ += n;
  if (stringBytes_ > stringLimit_) {
    return fail("shared strings expand to more than %" PRIu64 " bytes; refusing the input", stringLimit_);
  }
  return true;
}

bool Decoder::longCount(std::size_t off, std::uint64_t* n, std::size_t* start) {
  if (table_ - off < 2) return failAt(off, "the count's integer is missing");
  const std::uint8_t m = base_[off + 1];
  if ((m & 0xF0) != 0x10 || (m & 0x0F) > 3) return failAt(off, "the count is not an integer (marker 0x%02x)", m);
  const unsigned w = 1u << (m & 0x0F);
  if (table_ - off - 2 < w) return failAt(off, "the count's integer runs past the object area");
  const std::uint64_t v = getBE(base_ + off + 2, w);
  if (w == 8 && v > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    return failAt(off, "the count is negative");
  }
  *n = v;
  *start = off + 2 + w;
  return true;
}

bool Decoder::checkRef(std::uint64_t index) {
  if (index < numObjects_) return true;
  return fail("object %" PRIu64 ": refers to object %" PRIu64 " but there are only %" PRIu64 " objects", current_,
              index, numObjects_);
}

std::string Decoder::asciiString(std::size_t off, std::size_t start, std::size_t n) {
  const std::uint8_t* p = base_ + start;
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, p + i, sizeof word);
    if (word & 0x8080808080808080ull) break;
  }
  for (; i < n; ++i) {
    if (p[i] >= 0x80) {
      failAt(off, "an ASCII string holds the byte 0x%02x", p[i]);
      return std::string();
    }
  }
  if (!countStringBytes(n)) return std::string();
  return std::string(reinterpret_cast<const char*>(p), n);
}

std::string Decoder::utf16String(std::size_t off, std::size_t start, std::size_t n) {
  const std::uint8_t* p = base_ + start;
  // First pass: validate and measure.
  std::size_t len = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint32_t u = (static_cast<std::uint32_t>(p[2 * i]) << 8) | p[2 * i + 1];
    if (u < 0x80) {
      len += 1;
    } else if (u < 0x800) {
      len += 2;
    } else if (u >= 0xD800 && u <= 0xDBFF) {
      const std::uint32_t lo = i + 1 < n ? (static_cast<std::uint32_t>(p[2 * i + 2]) << 8) | p[2 * i + 3] : 0;
      if (lo < 0xDC00 || lo > 0xDFFF) {
        failAt(off, "a UTF-16 string has a lone high surrogate 0x%04x", u);
        return std::string();
      }
      len += 4;
      ++i;
    } else if (u >= 0xDC00 && u <= 0xDFFF) {
      failAt(off, "a UTF-16 string has a lone low surrogate 0x%04x", u);
      return std::string();
    } else {
      len += 3;
    }
  }
  if (!countStringBytes(len)) return std::string();
  std::string out(len, '\0');
  char* q = out.data();
  for (std::size_t i = 0; i < n; ++i) {
    std::uint32_t u = (static_cast<std::uint32_t>(p[2 * i]) << 8) | p[2 * i + 1];
    if (u >= 0xD800 && u <= 0xDBFF) {
      const std::uint32_t lo = (static_cast<std::uint32_t>(p[2 * i + 2]) << 8) | p[2 * i + 3];
      u = 0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00);
      ++i;
    }
    if (u < 0x80) {
      *q++ = static_cast<char>(u);
    } else if (u < 0x800) {
      *q++ = static_cast<char>(0xC0 | (u >> 6));
      *q++ = static_cast<char>(0x80 | (u & 0x3F));
    } else if (u < 0x10000) {
      *q++ = static_cast<char>(0xE0 | (u >> 12));
      *q++ = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
      *q++ = static_cast<char>(0x80 | (u & 0x3F));
    } else {
      *q++ = static_cast<char>(0xF0 | (u >> 18));
      *q++ = static_cast<char>(0x80 | ((u >> 12) & 0x3F));
      *q++ = static_cast<char>(0x80 | ((u >> 6) & 0x3F));
      *q++ = static_cast<char>(0x80 | (u & 0x3F));
    }
  }
  return out;
}

std::string Decoder::key(std::uint64_t index) {
  const std::uint64_t saved = current_;
  current_ = index;
  const std::size_t off = offsetOf(index);
  const std::uint8_t m = base_[off];
  const unsigned type = m >> 4;
  std::uint64_t n = 0;
  std::size_t start = 0;
  if (type != kAscii && type != kUtf16) {
    failAt(off, "a dictionary key is not a string (marker 0x%02x)", m);
    return std::string();
  }
  if (!countNode() || !count(off, m & 0x0F, &n, &start)) return std::string();
  const std::size_t avail = table_ - start;
  if (!fits(n, type == kAscii ? 1 : 2, avail)) {
    failAt(off, "a string of %" PRIu64 " characters runs past the object area", n);
    return std::string();
  }
  std::string out = type == kAscii ? asciiString(off, start, static_cast<std::size_t>(n))
                                   : utf16String(off, start, static_cast<std::size_t>(n));
  current_ = saved;
  return out;
}

Value Decoder::container(std::size_t off, std::uint64_t index, unsigned type, unsigned depth) {
  if (depth >= static_cast<unsigned>(kMaxDepth)) {
    failAt(off, "containers nest deeper than %d levels", kMaxDepth);
    return Value();
  }
  if (onPath_[index]) {
    failAt(off, "a container contains itself (reference cycle)");
    return Value();
  }
  std::uint64_t n = 0;
  std::size_t start = 0;
  if (!count(off, base_[off] & 0x0F, &n, &start)) return Value();
  const std::size_t left = table_ - start;
  const unsigned perEntry = type == kDict ? 2u * refSize_ : refSize_;
  if (!fits(n, perEntry, left)) {
    failAt(off, "a %s of %" PRIu64 " entries runs past the object area", type == kDict ? "dictionary" : "array", n);
    return Value();
  }
  // The children are counted now, before anything is reserved for them.
  if (n > nodeLimit_ - nodes_) {
    fail("shared objects expand to more than %" PRIu64 " values; refusing the input", nodeLimit_);
    return Value();
  }
  const std::uint8_t* refs = base_ + start;
  onPath_[index] = 1;
  Value out;
  if (type == kDict) {
    Dictionary d;
    d.reserve(static_cast<std::size_t>(n));
    const std::uint8_t* vals = refs + n * refSize_;
    for (std::uint64_t i = 0; i < n; ++i) {
      const std::uint64_t ki = ref(refs + i * refSize_);
      const std::uint64_t vi = ref(vals + i * refSize_);
      if (!checkRef(ki) || !checkRef(vi)) return Value();
      std::string k = key(ki);
      if (failed_) return Value();
      d.set(std::move(k), object(vi, depth + 1));
      if (failed_) return Value();
    }
    out = Value(std::move(d));
  } else {
    Array a;
    a.reserve(static_cast<std::size_t>(n));
    for (std::uint64_t i = 0; i < n; ++i) {
      const std::uint64_t ci = ref(refs + i * refSize_);
      if (!checkRef(ci)) return Value();
      a.push_back(object(ci, depth + 1));
      if (failed_) return Value();
    }
    out = Value(std::move(a));
  }
  onPath_[index] = 0;
  return out;
}

Value Decoder::object(std::uint64_t index, unsigned depth) {
  const std::uint64_t saved = current_;
  current_ = index;
  if (!countNode()) return Value();
  const std::size_t off = offsetOf(index);
  const std::uint8_t m = base_[off];
  const unsigned type = m >> 4;
  const unsigned nibble = m & 0x0F;
  const std::size_t avail = table_ - off - 1;  // bytes after the marker
  const std::uint8_t* p = base_ + off + 1;

  switch (type) {
    case kSimple:
      if (m == 0x08 || m == 0x09) {
        current_ = saved;
        return Value(m == 0x09);
      }
      if (m == 0x00) {
        failAt(off, "a null object is not a property-list value");
      } else if (m == 0x0F) {
        failAt(off, "a fill byte is not a property-list value");
      } else {
        failAt(off, "unknown marker 0x%02x", m);
      }
      return Value();

    case kInt: {
      if (nibble > 4) {
        failAt(off, "an integer of marker 0x%02x has no valid size", m);
        return Value();
      }
      const unsigned w = 1u << nibble;
      if (avail < w) {
        failAt(off, "a %u-byte integer runs past the object area", w);
        return Value();
      }
      current_ = saved;
      if (w <= 8) return Value(static_cast<std::int64_t>(getBE(p, w)));  // 1-4 bytes unsigned, 8 signed
      const std::uint64_t high = getBE(p, 8);
      const std::uint64_t low = getBE(p + 8, 8);
      if (high == 0) return Value(low);
      if (high == ~std::uint64_t{0} && (low >> 63) != 0) return Value(static_cast<std::int64_t>(low));
      current_ = index;
      failAt(off, "a 16-byte integer does not fit in 64 bits");
      return Value();
    }

    case kReal:
      if (nibble == 2 && avail >= 4) {
        const std::uint32_t bits = static_cast<std::uint32_t>(getBE(p, 4));
        float f;
        std::memcpy(&f, &bits, sizeof f);
        current_ = saved;
        return Value(static_cast<double>(f));
      }
      if (nibble == 3 && avail >= 8) {
        const std::uint64_t bits = getBE(p, 8);
        double d;
        std::memcpy(&d, &bits, sizeof d);
        current_ = saved;
        return Value(d);
      }
      if (nibble == 2 || nibble == 3) {
        failAt(off, "a %u-byte real runs past the object area", 1u << nibble);
      } else {
        failAt(off, "a real of marker 0x%02x has no valid size", m);
      }
      return Value();

    case kDate: {
      if (m != 0x33) {
        failAt(off, "a date of marker 0x%02x is not 8 bytes", m);
        return Value();
      }
      if (avail < 8) {
        failAt(off, "a date runs past the object area");
        return Value();
      }
      const std::uint64_t bits = getBE(p, 8);
      double d;
      std::memcpy(&d, &bits, sizeof d);
      current_ = saved;
      return Value(Date{d});
    }

    case kData:
    case kAscii:
    case kUtf16: {
      std::uint64_t n = 0;
      std::size_t start = 0;
      if (!count(off, nibble, &n, &start)) return Value();
      const std::size_t left = table_ - start;
      if (!fits(n, type == kUtf16 ? 2 : 1, left)) {
        failAt(off, "%s of %" PRIu64 " %s runs past the object area", type == kData ? "data" : "a string", n,
               type == kData ? "bytes" : "characters");
        return Value();
      }
      if (type == kData) {
        current_ = saved;
        return Value(input_.slice(start, static_cast<std::size_t>(n)));
      }
      // Built in place; after a failure the caller discards it.
      Value v(type == kAscii ? asciiString(off, start, static_cast<std::size_t>(n))
                             : utf16String(off, start, static_cast<std::size_t>(n)));
      if (!failed_) current_ = saved;
      return v;
    }

    case kUid: {
      const unsigned w = nibble + 1;
      if (w > 8) {
        failAt(off, "a UID of %u bytes does not fit in 64 bits", w);
        return Value();
      }
      if (avail < w) {
        failAt(off, "a UID runs past the object area");
        return Value();
      }
      current_ = saved;
      return Value(Uid{getBE(p, w)});
    }

    case kArray:
    case kSet:
    case kDict: {
      Value v = container(off, index, type, depth);
      current_ = saved;
      return v;
    }

    default:
      failAt(off, "unknown marker 0x%02x", m);
      return Value();
  }
}

Value Decoder::run() {
  if (!readTrailer()) return Value();
  Value out = object(top_, 0);
  if (failed_) return Value();
  return out;
}

}  // namespace

Data encode(const Value& value, std::string* error) {
  Encoder enc;
  enc.reserve(64);
  if (!enc.plan(value, 0)) {
    if (value.isNull()) enc.error = "cannot encode a null value (the top object)";
    if (error) *error = enc.error;
    return Data();
  }
  Data out = enc.write();
  if (out.isNull() && error) *error = enc.error;
  return out;
}

Value decode(const Data& bytes, std::string* error) {
  Decoder dec(bytes);
  Value v = dec.run();
  if (v.isNull() && error) *error = dec.error;
  return v;
}

}  // namespace mirelo::bplist

#include "ports/linux/crypto_openssl.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

namespace mirelo::linuxport {
namespace {

// EVP_EncodeBlock and EVP_DecodeBlock take int lengths; large inputs are
// handled in chunks that keep the Base64 quantum boundaries (3 bytes in,
// 4 characters out).
constexpr std::size_t kEncodeChunk = std::size_t{3} << 20;  // bytes
constexpr std::size_t kDecodeChunk = std::size_t{4} << 20;  // characters

bool isBase64Char(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/';
}

// The number of "=" at the end of a well-formed text, or -1 when the text
// is not standard padded Base64.
int paddingOf(std::string_view text) {
  if (text.size() % 4 != 0) return -1;
  std::size_t pad = 0;
  if (!text.empty() && text.back() == '=') {
    pad = 1;
    if (text[text.size() - 2] == '=') pad = 2;
  }
  const std::size_t body = text.size() - pad;
  for (std::size_t i = 0; i < body; ++i) {
    if (!isBase64Char(static_cast<unsigned char>(text[i]))) return -1;
  }
  return static_cast<int>(pad);
}

// The SHA-256 implementation, fetched from the default provider once.  The
// legacy EVP_sha256() handle makes every EVP_Digest call look the
// implementation up again, which costs as much as hashing a short text.
const EVP_MD* sha256Method() {
  static const EVP_MD* const method = [] {
    const EVP_MD* fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return fetched != nullptr ? fetched : EVP_sha256();
  }();
  return method;
}

class OpenSslCrypto final : public platform::Crypto {
 public:
  bool randomBytes(void* out, std::size_t size) override {
    if (size == 0) return true;
    if (out == nullptr || size > static_cast<std::size_t>(INT_MAX)) return false;
    return RAND_bytes(static_cast<unsigned char*>(out), static_cast<int>(size)) == 1;
  }

  std::array<std::uint8_t, 32> sha256(const void* bytes, std::size_t size) override {
    std::array<std::uint8_t, 32> out{};
    static const unsigned char kNothing = 0;
    const void* in = size == 0 || bytes == nullptr ? &kNothing : bytes;
    if (bytes == nullptr) size = 0;
    unsigned int len = 0;
    EVP_Digest(in, size, out.data(), &len, sha256Method(), nullptr);
    return out;
  }

  Data base64Decode(std::string_view text) override {
    const int pad = paddingOf(text);
    if (pad < 0) return Data();
    if (text.empty()) return Data::emptyData();
    std::vector<std::uint8_t> out(text.size() / 4 * 3);
    std::size_t written = 0;
    for (std::size_t pos = 0; pos < text.size(); pos += kDecodeChunk) {
      const std::size_t n = std::min(kDecodeChunk, text.size() - pos);
      const int got = EVP_DecodeBlock(out.data() + written,
                                      reinterpret_cast<const unsigned char*>(text.data() + pos),
                                      static_cast<int>(n));
      // The decoder writes three bytes for every four characters, padding
      // included, so anything else means it refused the input.
      if (got < 0 || static_cast<std::size_t>(got) != n / 4 * 3) return Data();
      written += static_cast<std::size_t>(got);
    }
    out.resize(written - static_cast<std::size_t>(pad));
    return Data::adopt(std::move(out));
  }

  std::string base64Encode(const void* bytes, std::size_t size) override {
    if (bytes == nullptr || size == 0) return std::string();
    const auto* in = static_cast<const unsigned char*>(bytes);
    std::string out((size + 2) / 3 * 4 + 1, '\0');
    std::size_t written = 0;
    for (std::size_t pos = 0; pos < size; pos += kEncodeChunk) {
      const std::size_t n = std::min(kEncodeChunk, size - pos);
      const int got = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data() + written), in + pos,
                                      static_cast<int>(n));
      written += static_cast<std::size_t>(std::max(got, 0));
    }
    out.resize(written);
    return out;
  }
};

}  // namespace

std::shared_ptr<platform::Crypto> makeOpenSslCrypto() { return std::make_shared<OpenSslCrypto>(); }

}  // namespace mirelo::linuxport

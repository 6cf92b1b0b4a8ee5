// Hashing and Base64 for Linux, backed by OpenSSL's libcrypto.
#pragma once

#include <memory>

#include "mirelo/platform/Platform.h"

namespace mirelo::linuxport {

// A platform::Crypto whose SHA-256 and Base64 come from libcrypto.  Base64
// decoding is strict: only the standard alphabet, the length a multiple of
// four, and at most two "=" at the very end; white space, line breaks and
// missing padding are refused (null Data).  The instance is stateless and may
// be shared by any number of platforms and threads.
std::shared_ptr<platform::Crypto> makeOpenSslCrypto();

}  // namespace mirelo::linuxport

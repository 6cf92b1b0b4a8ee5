// libFuzzer entry: the JSON reader of mirelo-plist.
// See fuzz/harness/PlistJsonTarget.h.
#include <cstddef>
#include <cstdint>

#include "fuzz/harness/Check.h"
#include "fuzz/harness/PlistJsonTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  mirelo::fuzz::check(mirelo::fuzz::runPlistJson(data, size));
  return 0;
}

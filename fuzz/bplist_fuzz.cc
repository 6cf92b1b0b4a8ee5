// libFuzzer entry: the binary property-list decoder.
// See fuzz/harness/BplistTarget.h.
#include <cstddef>
#include <cstdint>

#include "fuzz/harness/BplistTarget.h"
#include "fuzz/harness/Check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  mirelo::fuzz::check(mirelo::fuzz::runBplist(data, size));
  return 0;
}

// libFuzzer entry: the incoming URL entry with the pasteboard item.
// See fuzz/harness/OpenUrlTarget.h.
#include <cstddef>
#include <cstdint>

#include "fuzz/harness/Check.h"
#include "fuzz/harness/OpenUrlTarget.h"
#include "fuzz/harness/Rig.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // One device per process; every input starts a fresh kit process on it.
  static mirelo::fuzz::Rig* const rig = new mirelo::fuzz::Rig();
  mirelo::fuzz::check(mirelo::fuzz::runOpenUrl(*rig, data, size));
  return 0;
}

// libFuzzer entry: sequences of sends, forged URLs, pasteboard writes,
// relaunches, time and the messenger's answers.
// See fuzz/harness/StatefulTarget.h.
#include <cstddef>
#include <cstdint>

#include "fuzz/harness/Check.h"
#include "fuzz/harness/StatefulTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // One device per process; every input starts a fresh kit process on it.
  static mirelo::fuzz::StatefulRig* const rig = new mirelo::fuzz::StatefulRig();
  mirelo::fuzz::check(mirelo::fuzz::runStateful(*rig, data, size));
  return 0;
}

// libFuzzer entry: the card lists of the card and invoice answers.
// See fuzz/harness/CardListTarget.h.
#include <cstddef>
#include <cstdint>

#include "fuzz/harness/CardListTarget.h"
#include "fuzz/harness/Check.h"
#include "fuzz/harness/Rig.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // One device per process; every input starts a fresh kit process on it.
  static mirelo::fuzz::Rig* const rig = new mirelo::fuzz::Rig();
  mirelo::fuzz::check(mirelo::fuzz::runCardList(*rig, data, size));
  return 0;
}

// libFuzzer entry: mirelo-doctor's Info.plist and association checks.
// See fuzz/harness/DoctorTarget.h.
#include <cstddef>
#include <cstdint>

#include "fuzz/harness/Check.h"
#include "fuzz/harness/DoctorTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  mirelo::fuzz::check(mirelo::fuzz::runDoctor(data, size));
  return 0;
}

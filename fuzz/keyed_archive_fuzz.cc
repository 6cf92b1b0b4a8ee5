// libFuzzer entry: the keyed-archive decoder and the display-data records.
// See fuzz/harness/KeyedArchiveTarget.h.
#include <cstddef>
#include <cstdint>

#include "fuzz/harness/Check.h"
#include "fuzz/harness/KeyedArchiveTarget.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  mirelo::fuzz::check(mirelo::fuzz::runKeyedArchive(data, size));
  return 0;
}

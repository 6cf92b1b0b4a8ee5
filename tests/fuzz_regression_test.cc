// Every input the fuzzers once broke the kit with (fuzz/corpus/<target>/
// regress-*), replayed through the same harness in the normal build.  A
// harness answers "" when the kit handled the input, else the problem.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/harness/BplistTarget.h"
#include "fuzz/harness/CardListTarget.h"
#include "fuzz/harness/KeyedArchiveTarget.h"
#include "fuzz/harness/OpenUrlTarget.h"
#include "fuzz/harness/PasteboardTarget.h"
#include "fuzz/harness/PlistJsonTarget.h"
#include "fuzz/harness/QrAnswerTarget.h"
#include "fuzz/harness/Rig.h"

namespace mirelo::testing {
namespace {

namespace fs = std::filesystem;

// The regress-* inputs of `target`, with their file names.
std::vector<std::pair<std::string, std::string>> regressInputs(const std::string& target) {
  const fs::path dir = fs::path(__FILE__).parent_path().parent_path() / "fuzz" / "corpus" / target;
  std::vector<std::pair<std::string, std::string>> out;
  if (!fs::is_directory(dir)) return out;
  for (const fs::directory_entry& e : fs::directory_iterator(dir)) {
    const std::string name = e.path().filename().string();
    if (name.rfind("regress-", 0) != 0) continue;
    std::ifstream in(e.path(), std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    out.emplace_back(name, s.str());
  }
  return out;
}

using Run = std::function<std::string(fuzz::Rig&, const std::uint8_t*, std::size_t)>;

template <std::string (*F)(const std::uint8_t*, std::size_t)>
Run withoutRig() {
  return [](fuzz::Rig&, const std::uint8_t* d, std::size_t n) { return F(d, n); };
}

struct Target {
  const char* name;
  Run run;
};

// The doctor's inputs replay in the fuzz build only: the tools' library is
// not part of this test binary.
const Target kTargets[] = {
    {"bplist", withoutRig<fuzz::runBplist>()},
    {"keyed_archive", withoutRig<fuzz::runKeyedArchive>()},
    {"plist_json", withoutRig<fuzz::runPlistJson>()},
    {"pasteboard", fuzz::runPasteboard},
    {"open_url", fuzz::runOpenUrl},
    {"card_list", fuzz::runCardList},
    {"qr_answer", fuzz::runQrAnswer},
};

class FuzzRegression : public ::testing::TestWithParam<Target> {};

TEST_P(FuzzRegression, KeptInputsAreHandled) {
  fuzz::Rig rig;  // a simulated device of this test's own
  for (const auto& [name, bytes] : regressInputs(GetParam().name)) {
    SCOPED_TRACE(name);
    EXPECT_EQ(GetParam().run(rig, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), "");
  }
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzRegression, ::testing::ValuesIn(kTargets),
                         [](const ::testing::TestParamInfo<Target>& p) { return std::string(p.param.name); });

}  // namespace
}  // namespace mirelo::testing

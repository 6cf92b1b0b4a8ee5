// The log sink holder: switching between block and delegate sinks, level
// rules, the weakly held delegate, line forms, and reset by a relaunch.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "mirelo/platform/Platform.h"
#include "mirelo/platform/ProcessState.h"
#include "mirelo/sim/SimDevice.h"
#include "util/Log.h"
#include "util/MRLogUtil.h"

namespace mirelo {
namespace {

using Lines = std::vector<std::string>;

class RecordingDelegate : public MRApiLogDelegate {
 public:
  void onLog(const std::string& log, MRLogLevel level) override { received.emplace_back(log, level); }
  std::vector<std::pair<std::string, std::int64_t>> received;
};

// A delegate that leaves onLog at its default.
class SilentDelegate : public MRApiLogDelegate {};

class LoggingTest : public ::testing::Test {
 protected:
  void SetUp() override { platform::resetProcessState(); }
  void TearDown() override { platform::resetProcessState(); }

  MRLogUtil& log() { return MRLogUtil::sharedInstance(); }
  MRLogBlock recorder(Lines& lines) {
    return [&lines](const std::string& line) { lines.push_back(line); };
  }
};

// The prefixes of the line kinds, and which line levels reach the sink.
TEST_F(LoggingTest, LinesCarryTheirPrefixAndPassByLevel) {
  Lines lines;
  log().configLogBlock(recorder(lines), MRLogLevelDetail);
  mrlog::line("send req[%@], appID:%@", String("r"), String());
  mrlog::error("appId[%@], appid.length:%@", String(""), 0);
  mrlog::detail("detail %d", 7);
  EXPECT_EQ(lines,
            (Lines{"mrlog:send req[r], appID:(null)", "mrlog:Error:appId[], appid.length:0", "mrlog:detail 7"}));
  log().removeLog();
  const struct {
    std::int64_t configured, line;
    bool delivered;
  } cases[] = {{0, 0, true}, {0, 1, false}, {1, 1, true}, {1, 2, false}, {1, -1, false}, {5, 5, false}};
  for (const auto& c : cases) {
    Lines got;
    log().configLogBlock(recorder(got), c.configured);
    log().printLog("x", c.line);
    EXPECT_EQ(got.size(), c.delivered ? 1u : 0u) << c.configured << "/" << c.line;
    log().removeLog();
  }
  // A delegate is handed the configured level, not the line's.
  auto delegate = std::make_shared<RecordingDelegate>();
  log().configLogDelegate(delegate, MRLogLevelDetail);
  log().printLog("normal", 0);
  EXPECT_EQ(delegate->received, (std::vector<std::pair<std::string, std::int64_t>>{{"normal", 1}}));
}

// A new block tells the old sink (a delegate with its old level) and takes
// over; a null block changes nothing.
TEST_F(LoggingTest, ANewSinkTellsTheOldOneAndANullBlockChangesNothing) {
  Lines a, b;
  log().configLogBlock(recorder(a), MRLogLevelNormal);
  log().configLogBlock(recorder(b), MRLogLevelDetail);
  EXPECT_EQ(a, Lines{"change into print log by other block"});
  EXPECT_TRUE(b.empty());
  log().configLogBlock(nullptr, MRLogLevelNormal);
  EXPECT_EQ(log().logLevel(), MRLogLevelDetail);
  mrlog::line("hello");
  EXPECT_EQ(a.size(), 1u);
  EXPECT_EQ(b, Lines{"mrlog:hello"});

  log().removeLog();
  auto delegate = std::make_shared<RecordingDelegate>();
  log().configLogDelegate(delegate, MRLogLevelDetail);
  log().configLogBlock(nullptr, MRLogLevelNormal);
  EXPECT_EQ(log().logDelegate(), delegate);
  Lines lines;
  log().configLogBlock(recorder(lines), MRLogLevelNormal);
  ASSERT_EQ(delegate->received.size(), 1u);
  EXPECT_EQ(delegate->received[0], std::make_pair(std::string("change into print log by block"), std::int64_t{1}));
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(log().logDelegate(), nullptr);
  mrlog::line("after");
  EXPECT_EQ(delegate->received.size(), 1u);
  EXPECT_EQ(lines, Lines{"mrlog:after"});

  // A delegate (even one without onLog, or a null one) tells only the old
  // block, and clears it.
  const std::shared_ptr<MRApiLogDelegate> delegates[] = {std::make_shared<RecordingDelegate>(),
                                                         std::make_shared<SilentDelegate>(), nullptr};
  for (const auto& next : delegates) {
    log().removeLog();
    lines.clear();
    log().configLogBlock(recorder(lines), MRLogLevelNormal);
    log().configLogDelegate(next, MRLogLevelDetail);
    EXPECT_EQ(lines, Lines{"change into print log by delegate"});
    EXPECT_EQ(log().logLevel(), MRLogLevelDetail);
    mrlog::error("x");
    EXPECT_EQ(lines.size(), 1u);
  }
  auto* recording = dynamic_cast<RecordingDelegate*>(delegates[0].get());
  ASSERT_EQ(recording->received.size(), 1u);
  EXPECT_EQ(recording->received[0].first, "mrlog:Error:x");
}

TEST_F(LoggingTest, ABlockMayReconfigureTheLoggerWhileBeingCalled) {
  Lines lines;
  log().configLogBlock(
      [&lines](const std::string& line) {
        lines.push_back(line);
        MRLogUtil::sharedInstance().removeLog();  // destroys the stored block
      },
      MRLogLevelNormal);
  mrlog::line("first");
  mrlog::line("second");
  EXPECT_EQ(lines, Lines{"mrlog:first"});
}

TEST_F(LoggingTest, EveryQuotedValueIsCutToABoundWithItsFullLength) {
  Lines lines;
  log().configLogBlock(recorder(lines), MRLogLevelNormal);
  const std::string big(mrlog::kMaxLoggedValueBytes + 5, 'a');
  mrlog::line("url:%@ end", String("\xC3\xA9" + big));
  ASSERT_EQ(lines.size(), 1u);
  const std::string& line = lines[0];
  EXPECT_LT(line.size(), mrlog::kMaxLoggedValueBytes + 64);
  EXPECT_NE(line.find("...[cut: " + std::to_string(big.size() + 2) + " bytes] end"), std::string::npos);
  // A token cut short is still hidden.
  lines.clear();
  mrlog::line("%@", std::string(mrlog::kMaxLoggedValueBytes - 22, 'x') + "mirelo_auth_token=SECRET");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].find("SECR"), std::string::npos);
}

TEST_F(LoggingTest, AnErrorWithoutASinkGoesToTheSystemLog) {
  auto device = sim::SimDevice::create();
  sim::AppManifest manifest;
  manifest.bundleId = "com.example.host";
  const auto previous = platform::setCurrent(device->install(manifest).platform());
  mrlog::error("refused %@", String("x?mirelo_auth_token=t0k"));
  mrlog::line("not an error");
  ASSERT_EQ(device->systemLog().size(), 1u);
  EXPECT_EQ(device->systemLog()[0].find("com.example.host: mrlog:Error:refused x?mirelo_auth_token=sha256:"), 0u);
  Lines lines;
  log().configLogBlock(recorder(lines), MRLogLevelNormal);
  mrlog::error("to the sink");
  EXPECT_EQ(device->systemLog().size(), 1u) << "with a sink, the sink alone";
  EXPECT_EQ(lines, Lines{"mrlog:Error:to the sink"});
  platform::setCurrent(previous);
}

}  // namespace
}  // namespace mirelo

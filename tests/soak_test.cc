// Mixed round trips with the messenger peer answering at random (answers,
// cancels, codes, silence, token refreshes, re-sends by scheme), relaunches,
// and another app overwriting the pasteboard: every completion runs once,
// no answer comes twice or as the wrong class, and the state stays bounded.
// MIRELO_SOAK_ROUNDS (default 20000) and MIRELO_SOAK_SEED; scripts/soak.sh
// runs it longer.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "support/PeerFixture.h"

namespace mirelo::testing {
namespace {

std::uint64_t envNumber(const char* name, std::uint64_t fallback) {
  const char* text = std::getenv(name);
  return text && *text ? std::strtoull(text, nullptr, 10) : fallback;
}

// One kind of request: its command, how to make it, and its answer classes.
struct Kind {
  const char* command;
  std::function<std::shared_ptr<BaseReq>()> make;
  std::vector<std::string> answers;
};

std::vector<Kind> kinds() {
  return {{"sendreq/", [] { return textShare("soak"); }, {"SendMessageToMRResp"}},
          {"auth/", [] { return makeReq<SendAuthReq>([](auto& r) { r.scope = "snsapi_userinfo"; }); },
           {"SendAuthResp", "SendTdiAuthResp"}},
          {"pay/", [] { return filledPay(); }, {"PayResp"}}};
}

class SoakTest : public PeerKitTest {
 protected:
  void restartHost() {
    device->relaunch(kHostBundleId);
    MRApi::startLogByLevel(MRLogLevelNormal, [this](const std::string&) { ++logLines; });
    ASSERT_TRUE(registerHost());
  }

  std::size_t logLines = 0;
};

TEST_F(SoakTest, MixedRoundTripsStayConsistent) {
  const std::uint64_t rounds = envNumber("MIRELO_SOAK_ROUNDS", 20000);
  std::mt19937_64 rng(envNumber("MIRELO_SOAK_SEED", 20261121));
  auto chance = [&](int percent) { return static_cast<int>(rng() % 100) < percent; };
  const std::vector<Kind> table = kinds();
  using sim::Outcome;
  const Outcome outcomes[] = {Outcome::success(), Outcome::cancel(), Outcome::withCode(-3), Outcome::noAnswer(),
                              Outcome::success(Dictionary{{"code", "c"}})};

  // The log sink counts lines only: a soak keeps no history.
  MRApi::stopLog();
  logs.clear();
  restartHost();

  // Another app that writes the pasteboard between the kit's write and the
  // messenger's read, or between the messenger's answer and the kit's read.
  bool overwriteBeforeHostReads = false;
  const auto kitHandler = hostHandler;
  hostHandler = [&](const sim::OpenContext& context) {
    if (overwriteBeforeHostReads) device->setPasteboardString("copied by another app");
    return kitHandler(context);
  };

  std::uint64_t answered = 0, silent = 0, wrong = 0, twice = 0, badCompletions = 0;
  for (std::uint64_t round = 0; round < rounds; ++round) {
    const Kind& kind = table[rng() % table.size()];
    peer->scriptOnce(kind.command, outcomes[rng() % std::size(outcomes)]);
    using Action = sim::TokenPolicy::Action;
    const Action actions[] = {Action::Refresh, Action::Proceed, Action::FailRefresh, Action::ResendByScheme};
    sim::TokenPolicy policy = tokenPolicy(actions[rng() % 4]);
    if (chance(50)) policy.failure = sim::TokenPolicy::Failure::WrongContextId;  // else MissingToken
    policy.token = "soak-token-" + std::to_string(round % 7);
    peer->setTokenPolicy(policy);
    overwriteBeforeHostReads = chance(10);

    int completions = 0;
    delegate->resps.clear();
    delegate->reqs.clear();
    hostOpens.clear();
    MRApi::sendReq(kind.make(), [&completions](bool) { ++completions; });
    if (chance(10)) device->setPasteboardString("copied by another app");
    device->advance(1.0);
    peer->clearScripts();

    if (completions != 1) ++badCompletions;
    if (delegate->resps.size() > 1) ++twice;
    for (const auto& resp : delegate->resps) {
      if (std::find(kind.answers.begin(), kind.answers.end(), resp->className()) == kind.answers.end()) ++wrong;
    }
    if (!delegate->reqs.empty()) ++wrong;
    (delegate->resps.empty() ? silent : answered) += 1;

    if (chance(2)) restartHost();
    if (round % 256 == 0) peer->clearLog();
    // Nothing piles up: at most the messenger's or another app's one item
    // on the pasteboard, one token item, and no stray timers.
    ASSERT_LE(device->pasteboardTypes().size(), 1u) << "round " << round;
    ASSERT_LE(host->keychainItems().size(), 1u) << "round " << round;
    ASSERT_EQ(device->pendingTimedTasks(), 0u) << "round " << round;
    device->clearOpenLog();
  }

  EXPECT_EQ(badCompletions, 0u);
  EXPECT_EQ(wrong, 0u);
  EXPECT_EQ(twice, 0u);
  // The mix really was mixed.
  EXPECT_GT(answered, rounds / 4);
  EXPECT_GT(silent, rounds / 20);
  EXPECT_GT(logLines, rounds);
  RecordProperty("answered", static_cast<int>(answered));
  RecordProperty("silent", static_cast<int>(silent));
}

}  // namespace
}  // namespace mirelo::testing

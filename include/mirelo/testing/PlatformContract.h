// The platform contract: one GoogleTest suite, written against the seam's
// interfaces (mirelo/platform/Platform.h), that every port must pass.  Each
// case checks what the kit relies on: what success and failure look like,
// the order of events, and the threads they arrive on.
//
// A port runs it from its own test host: it implements PlatformEnvironment
// (the platform of the app under test, a way to run its main run loop, and
// the few arrangements on the device that some cases need) and instantiates
// the suite once per environment:
//
//   #include "mirelo/testing/PlatformContract.h"
//   MIRELO_PLATFORM_CONTRACT(Phone, [] { return std::make_unique<PhoneEnvironment>(); });
//
// and links MireloKit::contract with GoogleTest's main.  A service the
// platform leaves null, or an arrangement the environment cannot make,
// skips the cases that need it (reported as skipped, never as passed).
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "mirelo/platform/Platform.h"

namespace mirelo::testing {

class PlatformEnvironment {
 public:
  virtual ~PlatformEnvironment() = default;

  // The platform of the app under test.  The app is in front and active
  // when the environment is made.
  virtual std::shared_ptr<platform::Platform> platform() = 0;
  // Runs the main run loop until `done()` is true or `seconds` have passed
  // (on the port's clock); returns `done()`.
  virtual bool runUntil(const std::function<bool()>& done, double seconds) = 0;

  // ---- arrangements; the defaults say "cannot be made here" ----

  // URLs for the opening cases.
  struct Links {
    std::string listedScheme;    // an installed app's scheme URL, its scheme listed in
                                 // the app's "LSApplicationQueriesSchemes"
    std::string unlistedScheme;  // an installed app's scheme URL, not listed
    std::string missingScheme;   // a URL of a scheme that no app registers
    std::string universalLink;   // an https URL that an installed app claims
    std::string webLink;         // an https URL that no app claims
  };
  virtual std::optional<Links> links() { return std::nullopt; }
  // Another app (or the user, copying there) puts `text` on the pasteboard.
  virtual bool writeTextAsOtherApp(const std::string& /*text*/) { return false; }
  // The user leaves the app for another one, then comes back by hand.
  virtual bool leaveAndComeBack() { return false; }
  // The app goes to the background, then another app opens it with a URL;
  // `received` runs when the URL reaches the app (where the port hands
  // URLs to the kit).
  virtual bool reopenByURL(std::function<void()> /*received*/) { return false; }
  // An https URL on a server the system trusts, answering 200 with a body,
  // and one on a server whose certificate the system does not accept.
  virtual std::optional<std::string> trustedHttpsURL() { return std::nullopt; }
  virtual std::optional<std::string> untrustedHttpsURL() { return std::nullopt; }
  // Taps the button titled `title` of the alert on screen.
  virtual bool tapAlertButton(const std::string& /*title*/) { return false; }
  // The system log's lines, as far as the environment can see them.
  virtual std::optional<std::vector<std::string>> systemLogLines() { return std::nullopt; }
};

struct ContractEnvironment {
  std::string name;
  std::function<std::unique_ptr<PlatformEnvironment>()> make;
};
inline void PrintTo(const ContractEnvironment& environment, std::ostream* os) { *os << environment.name; }

// The suite's fixture: a fresh environment for every case.
class PlatformContract : public ::testing::TestWithParam<ContractEnvironment> {
 protected:
  void SetUp() override;
  void TearDown() override;
  // Runs the run loop until `done()`, for at most `seconds`.
  bool runUntil(const std::function<bool()>& done, double seconds = 10) { return env->runUntil(done, seconds); }

  std::unique_ptr<PlatformEnvironment> env;
  std::shared_ptr<platform::Platform> p;
};

// Defined beside the suite's cases, so that naming it links them in.
int platformContractLinked();

}  // namespace mirelo::testing

// Instantiates the contract for the environment made by `factory` (a
// callable returning std::unique_ptr<PlatformEnvironment>).  Use at
// namespace scope, once per environment name.
#define MIRELO_PLATFORM_CONTRACT(Name, factory)                                                          \
  [[maybe_unused]] static const int mirelo_platform_contract_##Name =                                  \
      ::mirelo::testing::platformContractLinked();                                                     \
  namespace mirelo::testing {                                                                          \
  INSTANTIATE_TEST_SUITE_P(Name, PlatformContract, ::testing::Values(ContractEnvironment{#Name, factory}), \
                           [](const auto& environment) { return environment.param.name; });                          \
  }

// Checks an app's integration before it runs: what registration would
// refuse, the URL type the messenger answers through, the universal link,
// and the apple-app-site-association file of the link's domain.
//
// Registration is checked by running the kit's own MRApi::registerApp on a
// simulated device whose host app has the given Info.plist, with the kit's
// log lines collected: a refusal is reported with the kit's own line.  The
// kit stops at its first refusal, so the doctor repairs the simulated
// integration (adds the missing query scheme, drops the forbidden URL
// scheme, ...) and registers again until the kit accepts it, so that every
// problem is reported at once.
//
// runDoctor works on the kit's process-wide state: it installs the
// simulated device as the kit's platform for the run and puts the previous
// platform back afterwards, resetting the kit's process state (registration,
// log sink) before and after.  Main thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "mirelo/Data.h"
#include "tools/common/Report.h"

namespace mirelo::tooling {

struct DoctorInput {
  Data infoPlist;  // the bytes of the app's Info.plist, XML or binary
  std::string appId;
  std::string universalLink;
  // The text of the apple-app-site-association file, when given.
  std::optional<std::string> association;
  // "" accepts any team with the Info.plist's bundle id.
  std::string teamId;
  // The text of the app's entitlements file (a property list), when given.
  std::optional<std::string> entitlements;
  // The domain the association file was fetched from, when known.
  std::string associationDomain;
};

struct Finding {
  // "info-plist", "registration", "url-scheme", "query-schemes",
  // "universal-link", "entitlements", "association"
  std::string check;
  std::string problem;  // for registration, the kit's log line
  std::string fix;
};

struct DoctorReport {
  std::vector<Finding> findings;
  std::vector<std::string> notes;
  // The checks that ran and found nothing.
  std::vector<std::string> passed;

  // The Info.plist (or the entitlements file) given is not a property list
  // holding a dictionary: the input is bad, not the integration.
  bool badInput = false;

  bool ok() const { return findings.empty(); }
  Json json() const;
  // One line per finding ("<check>: <problem> -- fix: <fix>"), the notes,
  // and a closing summary line.
  std::string text() const;
};

DoctorReport runDoctor(const DoctorInput& input);

}  // namespace mirelo::tooling

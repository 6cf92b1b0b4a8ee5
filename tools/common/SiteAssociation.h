// The apple-app-site-association file that the host's domain serves, read
// the way the system reads its "applinks" section: which "details" entry
// belongs to an app, and whether that entry claims a path.
//
//   {"applinks": {"defaults": {"caseSensitive": true},
//                 "details": [{"appIDs": ["TEAM.bundle"],
//                              "components": [{"/": "/mirelo/*", "exclude": false}]},
//                             {"appID": "TEAM.bundle", "paths": ["NOT /x/*", "/mirelo/*"]}]}}
//
// An entry names its apps with "appID" (one) or "appIDs" (several), each
// "<team id>.<bundle id>".  The first entry that names the app decides.
// Its "components" (when present) or else its "paths" are tried in order and
// the first pattern that matches decides: a "paths" pattern starting with
// "NOT " and a component with "exclude": true refuse the URL, any other
// match claims it, no match refuses it.  Patterns match the whole text;
// "*" stands for any run of characters ("/" included), "?" for exactly one.
// A component's "/" matches the path, "?" the query (a string pattern for
// the whole query, or an object of item name to value pattern, each item
// required) and "#" the fragment; an absent one matches anything.
// "caseSensitive" (per component, or in "defaults") is true unless set;
// "caseSensitive" and "exclude" count as absent when they are not booleans.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mirelo::tooling {

// Whether `pattern` matches all of `text`.
bool wildcardMatch(std::string_view pattern, std::string_view text, bool caseSensitive = true);

// One URL to test: path, query and fragment as they appear in the URL.
struct AssociationUrl {
  std::string path;
  std::string query;
  std::string fragment;
};

struct AssociationVerdict {
  enum class Kind {
    Malformed,   // not JSON, or no usable applinks/details
    NoEntry,     // no details entry names the app
    NotCovered,  // the entry refuses at least one of the URLs
    Covered,     // the entry claims every URL
  };
  Kind kind = Kind::Malformed;
  // What is wrong (Malformed), or why the first refused URL was refused.
  std::string detail;
  // The app ids of the deciding entries that matched (one per team).
  std::vector<std::string> appIds;
  // The refused URLs' paths, in the order given.
  std::vector<std::string> refused;
};

// Checks `urls` for the app "<teamId>.<bundleId>"; an empty `teamId`
// accepts any team with that bundle id (each matching app id is judged by
// its own first entry, and one that claims every URL is enough).
AssociationVerdict checkAssociation(std::string_view json, std::string_view teamId, std::string_view bundleId,
                                    const std::vector<AssociationUrl>& urls);

}  // namespace mirelo::tooling

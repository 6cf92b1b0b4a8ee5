#include "tools/common/SiteAssociation.h"

#include <algorithm>
#include <cctype>

#include <nlohmann/json.hpp>

namespace mirelo::tooling {

namespace {

using nlohmann::json;

char fold(char c, bool caseSensitive) {
  return caseSensitive ? c : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

// A boolean member of `object`, or `fallback` when it is absent or of
// another kind: the file comes from a web server, and a "caseSensitive" of
// "no" must not stop the check.
bool boolMember(const json& object, const char* key, bool fallback) {
  const auto it = object.find(key);
  return it != object.end() && it->is_boolean() ? it->get<bool>() : fallback;
}

// How one entry answers one URL.
struct Decision {
  bool claimed = false;
  std::string why;
};

// The query's items as written (not unescaped), for the "?" object form.
std::vector<std::pair<std::string_view, std::string_view>> queryItems(std::string_view query) {
  std::vector<std::pair<std::string_view, std::string_view>> items;
  while (!query.empty()) {
    const std::size_t amp = query.find('&');
    const std::string_view piece = query.substr(0, amp);
    const std::size_t eq = piece.find('=');
    items.emplace_back(piece.substr(0, eq), eq == std::string_view::npos ? std::string_view() : piece.substr(eq + 1));
    if (amp == std::string_view::npos) break;
    query.remove_prefix(amp + 1);
  }
  return items;
}

bool queryMatches(const json& condition, std::string_view query, bool caseSensitive) {
  if (condition.is_string()) return wildcardMatch(condition.get_ref<const std::string&>(), query, caseSensitive);
  if (!condition.is_object()) return false;
  const auto items = queryItems(query);
  for (const auto& member : condition.items()) {
    // Plain references: clang 14 cannot capture structured bindings.
    const std::string& name = member.key();
    const json& pattern = member.value();
    if (!pattern.is_string()) return false;
    const bool found = std::any_of(items.begin(), items.end(), [&](const auto& item) {
      return wildcardMatch(name, item.first, caseSensitive) &&
             wildcardMatch(pattern.get_ref<const std::string&>(), item.second, caseSensitive);
    });
    if (!found) return false;
  }
  return true;
}

Decision decideByComponents(const json& components, const AssociationUrl& url, bool defaultCaseSensitive) {
  for (const json& c : components) {
    if (!c.is_object()) continue;
    const bool caseSensitive = boolMember(c, "caseSensitive", defaultCaseSensitive);
    const auto text = [&c](const char* key) -> const json* {
      const auto it = c.find(key);
      return it == c.end() ? nullptr : &*it;
    };
    const json* path = text("/");
    const json* query = text("?");
    const json* fragment = text("#");
    if (path && (!path->is_string() || !wildcardMatch(path->get_ref<const std::string&>(), url.path, caseSensitive))) {
      continue;
    }
    if (query && !queryMatches(*query, url.query, caseSensitive)) continue;
    if (fragment &&
        (!fragment->is_string() || !wildcardMatch(fragment->get_ref<const std::string&>(), url.fragment, caseSensitive))) {
      continue;
    }
    const std::string shown = path && path->is_string() ? path->get<std::string>() : std::string("(any path)");
    if (boolMember(c, "exclude", false)) return {false, "excluded by the component \"/\": \"" + shown + "\""};
    return {true, "claimed by the component \"/\": \"" + shown + "\""};
  }
  return {false, "no component matches"};
}

Decision decideByPaths(const json& paths, const AssociationUrl& url, bool caseSensitive) {
  for (const json& p : paths) {
    if (!p.is_string()) continue;
    std::string_view pattern = p.get_ref<const std::string&>();
    const bool exclude = pattern.substr(0, 4) == "NOT ";
    if (exclude) pattern.remove_prefix(4);
    if (!wildcardMatch(pattern, url.path, caseSensitive)) continue;
    if (exclude) return {false, "excluded by the path \"NOT " + std::string(pattern) + "\""};
    return {true, "claimed by the path \"" + std::string(pattern) + "\""};
  }
  return {false, "no path pattern matches"};
}

Decision decide(const json& entry, const AssociationUrl& url, bool defaultCaseSensitive) {
  if (const auto c = entry.find("components"); c != entry.end() && c->is_array()) {
    return decideByComponents(*c, url, defaultCaseSensitive);
  }
  if (const auto p = entry.find("paths"); p != entry.end() && p->is_array()) {
    return decideByPaths(*p, url, defaultCaseSensitive);
  }
  return {false, "the entry has neither \"components\" nor \"paths\""};
}

// The app ids an entry names.
std::vector<std::string> namedApps(const json& entry) {
  std::vector<std::string> ids;
  if (const auto one = entry.find("appID"); one != entry.end() && one->is_string()) ids.push_back(one->get<std::string>());
  if (const auto many = entry.find("appIDs"); many != entry.end() && many->is_array()) {
    for (const json& id : *many) {
      if (id.is_string()) ids.push_back(id.get<std::string>());
    }
  }
  return ids;
}

bool isTheApp(std::string_view id, std::string_view teamId, std::string_view bundleId) {
  const std::size_t dot = id.find('.');
  if (dot == std::string_view::npos || dot == 0) return false;
  if (id.substr(dot + 1) != bundleId) return false;
  return teamId.empty() || id.substr(0, dot) == teamId;
}

}  // namespace

bool wildcardMatch(std::string_view pattern, std::string_view text, bool caseSensitive) {
  // Greedy matching with one backtrack point: linear for patterns without
  // "*", and never exponential.
  std::size_t p = 0, t = 0;
  std::size_t star = std::string_view::npos, mark = 0;
  while (t < text.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || fold(pattern[p], caseSensitive) == fold(text[t], caseSensitive))) {
      ++p;
      ++t;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      mark = t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++mark;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

AssociationVerdict checkAssociation(std::string_view text, std::string_view teamId, std::string_view bundleId,
                                    const std::vector<AssociationUrl>& urls) {
  AssociationVerdict v;
  // The parser takes a raw NUL for the end of the text and would accept
  // whatever follows it; JSON never holds one.
  if (const std::size_t nul = text.find('\0'); nul != std::string_view::npos) {
    v.detail = "not JSON: a NUL character at offset " + std::to_string(nul);
    return v;
  }
  json doc;
  try {
    doc = json::parse(text);
  } catch (const json::exception& e) {
    // Syntax errors, and numbers beyond a double (out_of_range 406).
    std::string what = e.what();
    if (const std::size_t close = what.find("] "); close != std::string::npos) what.erase(0, close + 2);
    v.detail = "not JSON: " + what;
    return v;
  }
  const auto applinks = doc.is_object() ? doc.find("applinks") : doc.end();
  if (!doc.is_object() || applinks == doc.end() || !applinks->is_object()) {
    v.detail = "no \"applinks\" object";
    return v;
  }
  const auto details = applinks->find("details");
  if (details == applinks->end() || !details->is_array()) {
    v.detail = "\"applinks\" has no \"details\" array";
    return v;
  }
  bool caseSensitive = true;
  if (const auto defaults = applinks->find("defaults"); defaults != applinks->end() && defaults->is_object()) {
    caseSensitive = boolMember(*defaults, "caseSensitive", true);
  }

  // Each matching app id with the first entry that names it.
  std::vector<std::pair<std::string, const json*>> apps;
  for (const json& entry : *details) {
    if (!entry.is_object()) continue;
    for (const std::string& id : namedApps(entry)) {
      if (!isTheApp(id, teamId, bundleId)) continue;
      const bool seen = std::any_of(apps.begin(), apps.end(), [&id](const auto& a) { return a.first == id; });
      if (!seen) apps.emplace_back(id, &entry);
    }
  }
  if (apps.empty()) {
    v.kind = AssociationVerdict::Kind::NoEntry;
    return v;
  }

  AssociationVerdict first;
  for (const auto& [id, entry] : apps) {
    AssociationVerdict candidate;
    candidate.appIds = {id};
    for (const AssociationUrl& url : urls) {
      const Decision d = decide(*entry, url, caseSensitive);
      if (d.claimed) continue;
      if (candidate.refused.empty()) candidate.detail = d.why;
      candidate.refused.push_back(url.path);
    }
    candidate.kind = candidate.refused.empty() ? AssociationVerdict::Kind::Covered
                                               : AssociationVerdict::Kind::NotCovered;
    if (candidate.kind == AssociationVerdict::Kind::Covered) return candidate;
    if (first.appIds.empty()) first = std::move(candidate);
  }
  first.appIds.clear();
  for (const auto& app : apps) first.appIds.push_back(app.first);
  return first;
}

}  // namespace mirelo::tooling

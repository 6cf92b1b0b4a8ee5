// Small builders shared by the codec and record tests: hand-laid binary
// property lists, long texts, model objects, and app data record bodies.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "mirelo/Data.h"
#include "mirelo/Value.h"
#include "record/AppCommunicateData.h"

namespace mirelo::testing {

using Lines = std::vector<std::string>;

inline std::string bytesOf(std::initializer_list<int> b) {
  std::string s;
  for (int c : b) s.push_back(static_cast<char>(c));
  return s;
}

inline void putBE(std::string& s, std::uint64_t v, unsigned width) {
  for (unsigned i = width; i-- > 0;) s.push_back(static_cast<char>(v >> (8 * i)));
}

// Lays out raw objects as a bplist00 file (object i is objects[i]).
inline std::string assemble(const std::vector<std::string>& objects, unsigned offsetSize = 1, unsigned refSize = 1,
                            std::uint64_t top = 0) {
  std::string f = "bplist00";
  std::vector<std::uint64_t> offsets;
  for (const auto& o : objects) {
    offsets.push_back(f.size());
    f += o;
  }
  const std::uint64_t table = f.size();
  for (std::uint64_t off : offsets) putBE(f, off, offsetSize);
  f.append(6, '\0');
  f.push_back(static_cast<char>(offsetSize));
  f.push_back(static_cast<char>(refSize));
  putBE(f, objects.size(), 8);
  putBE(f, top, 8);
  putBE(f, table, 8);
  return f;
}

inline String chars(std::size_t n, char c = 'a') { return String(std::string(n, c)); }

// A new model object of class T, filled in by `fill`.
template <class T, class F>
std::shared_ptr<T> make(F fill) {
  auto r = T::object();
  fill(*r);
  return r;
}

inline Dictionary with(Dictionary d, const Dictionary& extra) {
  for (const auto& [k, v] : extra) d.set(k, v);
  return d;
}

// The keys every flattened media object writes, with its type, then `extra`.
inline Dictionary mediaKeys(const char* objectType, const Dictionary& extra = {}) {
  return with(Dictionary{{"objectType", objectType},
                         {"withShareTicket", false},
                         {"disableForward", false},
                         {"appbrandisupdatablemessage", false},
                         {"appbrandissecrectmessage", false},
                         {"miniprogramType", 0},
                         {"tesselObjectSubType", "0"},
                         {"musicVideoDuration", "0"},
                         {"musicVideoIssueData", "0"}},
              extra);
}

// The record's dictionary without the header keys.
inline Dictionary bodyOf(const AppCommunicateData& record) {
  Dictionary body;
  for (const auto& [k, v] : record.propertList()) {
    if (k != "command" && k != "returnFromApp" && k != "result" && k != "isAutoResend" && k != "sdkver" &&
        k != "account" && k != "universalLink") {
      body.set(k, v);
    }
  }
  return body;
}

// The record as the receiver rebuilds it from `dict`.
inline std::shared_ptr<AppCommunicateData> received(Dictionary dict) {
  return AppCommunicateData::initWithPropertList(std::move(dict));
}

}  // namespace mirelo::testing

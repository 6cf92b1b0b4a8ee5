// Small helpers of the messenger peer: decimal parsing, readable printing of
// record values, and the checks of the record keys' value types.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mirelo/Value.h"

namespace mirelo::sim::peer {

// A whole decimal integer with an optional sign ("12", "-3"); nullopt for
// anything else (empty, trailing text, out of range).
std::optional<std::int64_t> parseDecimal(std::string_view text);

// A record value printed for a transcript: strings quoted, data as its size
// and a hex prefix, containers over several lines indented by `indent`.
std::string describeValue(const Value& value, int indent);
// Transcripts never show a token: the value of every "mirelo_auth_token="
// in `text` becomes "<token>", and so does the key's value in a query.
std::string maskTokens(std::string text);
Dictionary maskTokens(Dictionary query);

// "webpage", "mini program"... for an object type code; "" when unknown.
std::string objectTypeName(std::uint64_t code);

// Notes on record keys whose value is not of the kind the protocol writes.
void checkRecordTypes(const Dictionary& record, std::vector<std::string>* notes);

}  // namespace mirelo::sim::peer

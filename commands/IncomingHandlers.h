// Pieces of the incoming command handlers that the entry and the tests
// reach directly.  The handlers themselves are members of MRApi.
#pragma once

#include "mirelo/Value.h"

namespace mirelo::incoming {

// The key under which the messenger names the page an "opentypewebview"
// answer comes from.
inline constexpr const char* kRespTypeKey = "mr_internal_resptype";

// Whether an "opentypewebview" answer belongs to the mini-program
// subscription page: its type read as a string is
// "subscribeminiprogrammsg", or, when that string is empty, its type read
// as a number is 5 (the web-view type the kit sends for that page).
bool isSubscribeMiniProgramMsgType(const Dictionary& params);

}  // namespace mirelo::incoming

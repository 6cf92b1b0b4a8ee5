// Options of the web sign-in (the fallback of MRApi::sendAuthReq when the
// messenger is not on the device).
//
// The sign-in page shows the open platform's pages in a web view inside the
// host.  Whatever the options, a page there can never hand the host an
// answer it did not ask for: of the host's own scheme only the two
// hand-backs of a running sign-in leave the web view ("wapoauth", and
// "oauth" carrying the request's state); any other URL of the host's scheme
// (a payment's answer, a forged state) is refused with a logged line.  And
// a hand-back cannot set the keys the kit puts on the authorise page itself
// (appid, redirect_uri, response_type, scope, state, uid).
//
// By default everything else follows the platform's usual policy: any
// http or https page loads in the web view, and a URL of another scheme is
// offered to the system (which may open another app).  Strict navigation
// narrows that: only https pages of the open platform load in the web view,
// and nothing but the two hand-backs leaves it.
#pragma once

namespace mirelo {

struct MRWebSignInOptions {
  bool strictNavigation = false;
};

// Applies to every later navigation of the sign-in page.  Main thread.
void MRSetWebSignInOptions(const MRWebSignInOptions& options);
MRWebSignInOptions MRGetWebSignInOptions();

}  // namespace mirelo

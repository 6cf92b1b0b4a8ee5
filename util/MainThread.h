// The kit's API is main-thread only.  In builds without NDEBUG every public
// entry point first calls requireMainThread, which, called on any other
// thread, logs a clear error line (to the log sink, or the system log when
// none is set) and to standard error, then aborts.  Release builds check
// nothing.  The platform's run loop tells which thread is main.
#pragma once

namespace mirelo {

// Aborts, in a debug build, when the calling thread is not the main thread.
// `entry` names the public operation, such as "MRApi::sendReq".
void requireMainThread(const char* entry);

// Whether this build checks (false with NDEBUG).
bool mainThreadChecksEnabled();

}  // namespace mirelo

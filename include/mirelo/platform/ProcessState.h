// Process-wide state of the kit, and its reset.
//
// The kit keeps a few process-wide values (the registration, the log sink,
// the shared handlers, caches).  On a real device they die with the process.
// The simulated device relaunches an app inside one test process, so every
// module that keeps such state registers a reset here, and a relaunch of the
// app the kit runs as calls resetProcessState().
#pragma once

namespace mirelo::platform {

using ProcessReset = void (*)();

// Registers `reset` once (repeated registrations of the same function are
// ignored).  Thread-safe.
void registerProcessReset(ProcessReset reset);

// Calls every registered reset, in registration order.  Main thread.
void resetProcessState();

}  // namespace mirelo::platform

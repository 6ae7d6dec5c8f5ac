#pragma once

#include "platform/session_end.h"
#include "platform/update_lock.h"

namespace calder {

// No error dialog may wait for a person in an unattended, elevated run:
// critical-error, fault and open-file boxes off, and Windows Error
// Reporting without its UI (WerSetFlags, bound from the system folder; a
// system without it has nothing to silence).
void SilenceErrorDialogs();

// A fault on any thread (an access violation inside a vendor library, or
// anywhere) or any other exception nobody handles ends the run: one ERROR
// line "unhandled exception 0x%08X in MODULE+0xOFFSET", the lock and the
// shutdown block given back, exit code 1. Faults are taken first (a
// vectored handler, which no library can replace or swallow); the rest
// through the unhandled exception filter. A fault while the line is being
// written, or a logger that does not answer, ends the process without it.
void EndRunOnCrash(UpdateLock* lock);
// The block to lift when a crash ends the run; null once lifted.
void CrashLiftsShutdownBlock(ShutdownBlocker* blocker);

}  // namespace calder

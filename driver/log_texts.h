#pragma once

namespace calder {

// Texts of the run's own lines that the fleet report reads back; each lives
// here once so that a change shows in the report's tests.
extern const char kToolVersion[];
extern const char kFinishLine[];
// The entry's lines around the driver routine.
extern const char kCurrentVersionLine[];  // followed by the tool version
extern const char kHelperNotifiedLine[];
extern const char kHelperMissingLine[];
extern const char kMainReturnedLine[];  // followed by main's result

}  // namespace calder

#pragma once

#include "app/Options.h"
#include "ipconfig/ConfigPass.h"

// How a run ends: the text run's last line and the JSON report's result.
struct RUN_RESULT {
    const char* szText;
    const char* szJson;
};
extern const RUN_RESULT kInitFailed;
extern const RUN_RESULT kEnumFailed;
extern const RUN_RESULT kUnexpected;
extern const RUN_RESULT kFinished;
extern const RUN_RESULT kStopped;

// What the command line asks of one pass.
PASS_OPTIONS PassOptionsOf(const RUN_OPTIONS& options);

// The plain run's sequence from initialisation to the text report: enumerate, configure, enumerate
// again until the cameras answer, settle; kStopped when a stop cut it short. `first` gets the first
// discovery's view. The device model stays up for the caller, who ends it with UnInitDeviceModule().
const RUN_RESULT* RunSequence(const RUN_OPTIONS& options, CConfigPass& pass, SEEN_MODEL* first);

#pragma once

#include "app/Options.h"
#include "app/PassScheduler.h"
#include "ipconfig/ConfigPass.h"

#include <functional>
#include <string>
#include <vector>

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

// How a pass waits for the cameras it sent addresses to answer there.
enum CONFIRM_STYLE {
    CONFIRM_PLAIN,  // its own thread, every camera of the first discovery, dots with bShowProgress
    CONFIRM_QUIET,  // only the cameras sent an address, in the pass's scope, nothing printed
};

struct PASS_RESULT;

// What one pass is asked to do.
struct PASS_REQUEST {
    PASS_OPTIONS stOptions;
    PASS_SCOPE stScope;
    // The first pass starts the device model and limits it to stOptions.vecInterface; its failed
    // discovery ends the run.
    bool bFirst = true;
    CONFIRM_STYLE nConfirm = CONFIRM_PLAIN;
    bool bShowProgress = true;
    // After discovery (stFirst, strDiscoveryError): narrows the options to the cameras to work on;
    // false: no camera needs work.
    std::function<bool(const PASS_RESULT& discovered, PASS_OPTIONS* options)> fnChoose;
};

// What one pass saw and did, as values: every output reads these and nothing else.
struct PASS_RESULT {
    const RUN_RESULT* pResult = &kFinished;
    std::string strDiscoveryError;  // a later pass's failed discovery; the pass goes on
    SEEN_MODEL stFirst;             // the first discovery
    bool bWorked = false;           // the planner ran: the pass settled
    SEEN_MODEL stEnd;               // the end of a settled pass
    std::vector<INTERFACE_REPORT> vecReport;
    std::vector<CAMERA_OUTCOME> vecOutcome;  // as the planner recorded them, before settling

    const CAMERA_OUTCOME* FindOutcome(const std::string& devID) const;
};

// What the command line asks of one pass.
PASS_OPTIONS PassOptionsOf(const RUN_OPTIONS& options);

// One pass from discovery to settled outcomes. The device model stays up between passes; EndPasses() ends it.
PASS_RESULT RunPass(const PASS_REQUEST& request);
void EndPasses();
// Later passes reuse the access status of cameras that did not change.
void ReuseKnownCameras();

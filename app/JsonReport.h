#pragma once

#include "app/PassRun.h"
#include "device/InterfaceSurvey.h"

#include <vector>

// Prints the run as one JSON document: the result ("finished", "init failed", ...) and, when the
// pass finished, every interface and camera of its settled report, including those gone
// since the first discovery; and the interfaces the run skipped, with the reason, from the verdicts.
void PrintJsonReport(const PASS_RESULT& result, const PASS_OPTIONS& options,
                     const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts);

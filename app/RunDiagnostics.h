#pragma once

#include "device/InterfaceSurvey.h"

#include "ipconfig/ConfigPass.h"

#include <vector>

// The run-wide lines of the operator's diagnostics (--verbose).
void DiagRawNetworkRight();
void DiagInterfaces(const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts);
// Each camera's outcome, with the same reason the JSON report gives.
void DiagOutcomes(const std::vector<INTERFACE_REPORT>& report);

#pragma once

#include "device/InterfaceSurvey.h"

#include <vector>

class CConfigPass;

// The run-wide lines of the operator's diagnostics (--verbose).
void DiagRawNetworkRight();
void DiagInterfaces(const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts);
// Each camera's outcome, with the same reason the JSON report gives.
void DiagOutcomes(const CConfigPass& pass);

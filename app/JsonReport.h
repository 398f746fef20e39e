#pragma once

#include "device/InterfaceSurvey.h"

#include <vector>

class CConfigPass;

// Prints the run as one JSON document: the result ("finished", "init failed", ...) and, when
// withInterfaces is set, every interface and camera of the pass's settled report, including those gone
// since the first discovery; and the interfaces the run skipped, with the reason, from the verdicts.
void PrintJsonReport(const char* result, bool withInterfaces,
                     const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts, const CConfigPass& pass);

#pragma once

#include "device/InterfaceSurvey.h"

#include <vector>

// Prints the run as one JSON document: the result ("finished", "init failed", ...) and, when
// withInterfaces is set, every interface and camera of the device model as the text report has them;
// and the interfaces the run skipped, with the reason, from the verdicts.
void PrintJsonReport(const char* result, bool withInterfaces,
                     const std::vector<GenICam::Client::INTERFACE_VERDICT>& verdicts);

// Keeps the cameras of the first enumeration, so that the report also lists those that are gone.
void RememberFirstCameras();

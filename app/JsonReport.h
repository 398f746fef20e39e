#pragma once

// Prints the run as one JSON document: the result ("finished", "init failed", ...) and, when
// withInterfaces is set, every interface and camera of the device model as the text report has them.
void PrintJsonReport(const char* result, bool withInterfaces);

// Keeps the cameras of the first enumeration, so that the report also lists those that are gone.
void RememberFirstCameras();

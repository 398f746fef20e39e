#pragma once

#include <string>
#include <vector>

// What the command line asks for. With no arguments every field keeps its default: the plain run.
struct RUN_OPTIONS {
    bool bDryRun = false;
    bool bJson = false;
    bool bHelp = false;
    bool bVersion = false;
    bool bStandard = false;
    bool bCheckConflicts = false;
    std::vector<std::string> vecInterface;
};

// Fills options from argv; false with the problem in one phrase when the command line is wrong.
bool ParseOptions(int argc, char* argv[], RUN_OPTIONS* options, std::string* problem);

// The first of the names that no interface entry of the host carries; empty when all exist.
std::string FindUnknownInterface(const std::vector<std::string>& names);

void PrintHelp();
void PrintVersion();

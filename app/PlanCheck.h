#pragma once

#include "app/Options.h"
#include "ipconfig/AddressPlan.h"

#include <string>
#include <vector>

// A host interface as --check-config holds the plan against it.
struct HOST_SUBNET {
    std::string strName;
    unsigned int nIP = 0;
    unsigned int nMask = 0;
};

// The effective plan per interface (pool after exclusions and reservations, reservations), then the
// warnings, one line each. `plan` may be null: every interface keeps the default range.
std::string PlanCheckText(const ADDRESS_PLAN* plan, const std::vector<HOST_SUBNET>& subnets);

// Exit status of the configuration check: errors are printed by the caller before this runs.
int RunCheckConfig(const RUN_OPTIONS& options);

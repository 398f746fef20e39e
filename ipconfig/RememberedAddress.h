#pragma once

#include <string>

// An address the watch once moved a camera to: the planner prefers it for that camera again.
struct REMEMBERED_ADDRESS {
    std::string strMAC;        // report spelling: 00-0F-31-AA-00-02
    std::string strInterface;  // the report's interface name
    unsigned int nIP = 0;      // host order
};

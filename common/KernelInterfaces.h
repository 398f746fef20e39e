#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {

// One IPv4 address entry as the kernel lists it (a kernel name or an address label).
struct KERNEL_ADDRESS {
    std::string strName;
    uint32_t nIP;
    uint32_t nMask;
    std::string strMAC;  // report form, 00-11-22-33-44-55; empty when unread
    bool bUp;
    bool bCarrier;
    unsigned char aMAC[6] = {0};
    unsigned int nIndex = 0;     // of the device the name or label belongs to; 0 when unknown
    bool bHasMask = false;       // which per-entry queries answered
    bool bHasMAC = false;
    bool bHasFlags = false;
};

// The kernel's IPv4 address entries, in its order, at most `limit` of them: the one reader of the
// interface table, for the interface list, the interface survey and the link tap.
std::vector<KERNEL_ADDRESS> ReadKernelAddresses(size_t limit);

} // namespace Client
} // namespace GenICam

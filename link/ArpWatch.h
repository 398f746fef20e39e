#pragma once

#include "common/UniqueFd.h"
#include "link/ArpFrame.h"

#include <cstdint>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {

// A link-level socket for whole ARP frames on `device` (a kernel name or an address label: eth0:1
// opens eth0), with the kernel filter in place before the first frame is queued; blocking, closed on
// exec. Not open, with the errno in `error` (may be null), when it cannot be opened.
CUniqueFd OpenArpSocket(const std::string& device, ARP_FILTER which, int* error);

// Hears the ARP probes and announcements of other hosts on one link: a device that has just taken an
// address says so, and the kernel shows the frame even when the address does not fit the link.
class CArpWatch {
public:
    // false with the errno in `error` (may be null): no such interface, or no raw-network right.
    bool Open(const std::string& device, int* error);
    // Readable when frames wait: for the caller's poll.
    int GetFd() const;
    // Replaces `heard` with the probes and announcements queued, without blocking; at most a bounded
    // batch per call, so that a flood leaves the fd readable rather than holding the caller.
    void Read(std::vector<ARP_ANNOUNCEMENT>& heard);

private:
    CUniqueFd m_socket;
    uint8_t m_aMAC[6] = {};
};

} // namespace Client
} // namespace GenICam

#pragma once

#include "common/UniqueFd.h"
#include "link/ArpFrame.h"

#include <string>
#include <vector>

// RFC 5227 timing, in ms. PROBE_NUM is the RFC's; a round is shortened from the RFC's PROBE_MIN..PROBE_MAX
// (1-2 s) spacing and ANNOUNCE_WAIT (2 s) to fixed steps, so a host must answer within 500 ms to be heard.
const unsigned int PROBE_NUM = 3;
const unsigned int PROBE_SPACING_MS = 250;
const unsigned int PROBE_ROUND_MS = 1000;

// Probes many candidate addresses at once on one interface (RFC 5227 probes) from a packet socket.
class CArpConflictProbe {
public:
    // `device` is a kernel name or an address label (eth0:1 sends on eth0); false when no socket (see GetErrno).
    bool Open(const std::string& device, const uint8_t* mac);
    // One round; per candidate (network order) the first claim heard for it, ARP_CLAIM_NONE if none.
    std::vector<ARP_CLAIM> Round(const std::vector<uint32_t>& candidates);
    // The errno of the first send, read or wait that failed since Open (ECANCELED for a stop); 0 when none.
    int GetErrno() const;

private:
    void SendProbes(const std::vector<uint32_t>& candidates, const std::vector<ARP_CLAIM>& claims);
    void Listen(const std::vector<uint32_t>& candidates, std::vector<ARP_CLAIM>& claims, uint64_t untilMs);
    bool Fail(int error);

    GenICam::Client::CUniqueFd m_socket;
    int m_nErrno = 0;
    uint8_t m_aMAC[6] = {};
};

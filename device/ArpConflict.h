#pragma once

#include "device/ArpFrame.h"

#include <string>
#include <vector>

// How a round of conflict probes is spread: every candidate gets kArpProbesPerRound probes,
// kArpProbeIntervalMs apart, and the round listens until kArpRoundMs after it began, however many
// candidates it holds (sooner only when every candidate is taken). A host must answer a probe within
// kArpRoundMs - (kArpProbesPerRound - 1) * kArpProbeIntervalMs (500 ms) to be heard for certain.
const unsigned int kArpProbesPerRound = 3;
const unsigned int kArpProbeIntervalMs = 250;
const unsigned int kArpRoundMs = 1000;

// Probes many candidate addresses at once on one interface (RFC 5227 probes) from a packet socket.
class CArpConflictProbe {
public:
    CArpConflictProbe();
    ~CArpConflictProbe();
    CArpConflictProbe(const CArpConflictProbe&) = delete;
    CArpConflictProbe& operator=(const CArpConflictProbe&) = delete;

    // `device` is a kernel name or an address label (eth0:1 sends on eth0); false when no socket.
    bool Open(const std::string& device, const uint8_t* mac);
    void Close();
    // One round; per candidate (network order) the first claim heard for it, ARP_CLAIM_NONE if none.
    std::vector<ARP_CLAIM> Round(const std::vector<uint32_t>& candidates);

private:
    void __SendProbes(const std::vector<uint32_t>& candidates, const std::vector<ARP_CLAIM>& claims);
    void __Listen(const std::vector<uint32_t>& candidates, std::vector<ARP_CLAIM>& claims, long long untilMs);

    int m_nSocket;
    uint8_t m_aMAC[6];
};

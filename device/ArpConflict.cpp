#include "device/ArpConflict.h"

#include "common/SocketBuffer.h"
#include "device/ArpWatch.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Room for the answers to a round of a few thousand candidates.
const int kReceiveBuffer = 1 << 20;

bool AllClaimed(const std::vector<ARP_CLAIM>& claims)
{
    for (const ARP_CLAIM& claim : claims) {
        if (claim.nKind == ARP_CLAIM_NONE) {
            return false;
        }
    }
    return true;
}

long long NowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

CArpConflictProbe::CArpConflictProbe() : m_nSocket(-1), m_aMAC() {}

CArpConflictProbe::~CArpConflictProbe()
{
    Close();
}

bool CArpConflictProbe::Open(const std::string& device, const uint8_t* mac)
{
    Close();
    memcpy(m_aMAC, mac, sizeof(m_aMAC));
    m_nSocket = GenICam::Client::OpenArpSocket(device, ARP_FILTER_ALL, nullptr);
    if (m_nSocket < 0) {
        return false;
    }
    GenICam::Client::GrowReceiveBuffer(m_nSocket, kReceiveBuffer);
    return true;
}

void CArpConflictProbe::Close()
{
    if (m_nSocket != -1) {
        close(m_nSocket);
        m_nSocket = -1;
    }
}

std::vector<ARP_CLAIM> CArpConflictProbe::Round(const std::vector<uint32_t>& candidates)
{
    std::vector<ARP_CLAIM> claims(candidates.size(), ARP_CLAIM{ARP_CLAIM_NONE, 0, {0}});
    const long long start = NowMs();
    // A round whose candidates are all taken has nothing left to learn.
    for (unsigned int probe = 0; probe < kArpProbesPerRound && !AllClaimed(claims); ++probe) {
        __SendProbes(candidates, claims);
        const unsigned int next = probe + 1 < kArpProbesPerRound ? (probe + 1) * kArpProbeIntervalMs : kArpRoundMs;
        __Listen(candidates, claims, start + next);
    }
    return claims;
}

// A candidate already claimed is not probed again.
void CArpConflictProbe::__SendProbes(const std::vector<uint32_t>& candidates, const std::vector<ARP_CLAIM>& claims)
{
    for (size_t i = 0; i < candidates.size(); ++i) {
        if (claims[i].nKind == ARP_CLAIM_NONE) {
            const ARP_PACKET frame = EncodeArpConflictProbe(m_aMAC, candidates[i]);
            send(m_nSocket, &frame, sizeof(frame), 0);
        }
    }
}

void CArpConflictProbe::__Listen(const std::vector<uint32_t>& candidates, std::vector<ARP_CLAIM>& claims,
                                 long long untilMs)
{
    uint8_t frame[sizeof(ARP_PACKET)];
    for (long long now = NowMs(); now < untilMs && !AllClaimed(claims); now = NowMs()) {
        pollfd ready = {m_nSocket, POLLIN, 0};
        const int polled = poll(&ready, 1, static_cast<int>(untilMs - now));
        if (polled < 0 && errno != EINTR) {
            return;
        }
        if (polled <= 0) {
            continue;
        }
        const ssize_t length = recv(m_nSocket, frame, sizeof(frame), 0);
        if (length < 0) {
            continue;
        }
        const ARP_CLAIM claim = ReadArpClaim(frame, static_cast<size_t>(length), m_aMAC);
        if (claim.nKind == ARP_CLAIM_NONE) {
            continue;
        }
        const auto it = std::find(candidates.begin(), candidates.end(), claim.dwAddress);
        if (it != candidates.end() && claims[it - candidates.begin()].nKind == ARP_CLAIM_NONE) {
            claims[it - candidates.begin()] = claim;
        }
    }
}

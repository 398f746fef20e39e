#include "device/ArpConflict.h"

#include "common/SocketBuffer.h"
#include "common/StopToken.h"
#include "link/ArpWatch.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using GenICam::Client::MonotonicMs;

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


} // namespace

bool CArpConflictProbe::Open(const std::string& device, const uint8_t* mac)
{
    m_nErrno = 0;
    memcpy(m_aMAC, mac, sizeof(m_aMAC));
    int error = 0;
    m_socket = GenICam::Client::OpenArpSocket(device, ARP_FILTER_ALL, &error);
    if (!m_socket.IsOpen()) {
        return Fail(error);
    }
    GenICam::Client::GrowReceiveBuffer(m_socket.Get(), kReceiveBuffer);
    return true;
}

int CArpConflictProbe::GetErrno() const
{
    return m_nErrno;
}

// Keeps the first failure: later ones are usually its echo.
bool CArpConflictProbe::Fail(int error)
{
    if (m_nErrno == 0) {
        m_nErrno = error != 0 ? error : EIO;
    }
    return false;
}

std::vector<ARP_CLAIM> CArpConflictProbe::Round(const std::vector<uint32_t>& candidates)
{
    std::vector<ARP_CLAIM> claims(candidates.size(), ARP_CLAIM{ARP_CLAIM_NONE, 0, {0}});
    const uint64_t start = MonotonicMs();
    // A round whose candidates are all taken has nothing left to learn; a failed one cannot say "free".
    for (unsigned int probe = 0; probe < PROBE_NUM && !AllClaimed(claims) && m_nErrno == 0; ++probe) {
        SendProbes(candidates, claims);
        const unsigned int next = probe + 1 < PROBE_NUM ? (probe + 1) * PROBE_SPACING_MS : PROBE_ROUND_MS;
        Listen(candidates, claims, start + next);
    }
    return claims;
}

// A candidate already claimed is not probed again.
void CArpConflictProbe::SendProbes(const std::vector<uint32_t>& candidates, const std::vector<ARP_CLAIM>& claims)
{
    for (size_t i = 0; i < candidates.size() && m_nErrno == 0; ++i) {
        if (claims[i].nKind == ARP_CLAIM_NONE) {
            const ARP_PACKET frame = EncodeArpConflictProbe(m_aMAC, candidates[i]);
            if (send(m_socket.Get(), &frame, sizeof(frame), 0) != static_cast<ssize_t>(sizeof(frame))) {
                Fail(errno);
            }
        }
    }
}

void CArpConflictProbe::Listen(const std::vector<uint32_t>& candidates, std::vector<ARP_CLAIM>& claims,
                                 uint64_t untilMs)
{
    uint8_t frame[sizeof(ARP_PACKET)];
    while (m_nErrno == 0 && !AllClaimed(claims)) {
        int error = 0;
        const GenICam::Client::WAIT_RESULT waited = GenICam::Client::WaitReadable(m_socket.Get(), untilMs, &error);
        if (waited == GenICam::Client::WAIT_TIMEOUT) {
            return;
        }
        if (waited != GenICam::Client::WAIT_READY) {
            Fail(waited == GenICam::Client::WAIT_STOPPED ? ECANCELED : error);
            return;
        }
        const ssize_t length = recv(m_socket.Get(), frame, sizeof(frame), 0);
        if (length < 0) {
            Fail(errno);
            return;
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

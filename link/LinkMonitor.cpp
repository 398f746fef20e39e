#include "link/LinkMonitor.h"

#include "common/SocketBuffer.h"
#include "common/StopToken.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace GenICam {
namespace Client {

namespace {

// Room for a burst of a few hundred links coming and going before the kernel drops any.
const int kReceiveBuffer = 1 << 20;
// A kernel notification fits a page; more room costs nothing.
const size_t kMessageBuffer = 32768;
// One Read returns to the caller's loop after this many datagrams, even under a storm.
const int kReadsPerCall = 64;
// More links than a host has: beyond it the table starts again.
const size_t kLinkStatesMax = 4096;

template <class T>
T Load(const uint8_t* at)
{
    T value;
    memcpy(&value, at, sizeof(value));
    return value;
}

// Calls visit(type, data, length) for every whole attribute in [at, at + length).
template <class Visit>
void ForEachAttribute(const uint8_t* at, size_t length, Visit visit)
{
    while (length >= sizeof(rtattr)) {
        const rtattr head = Load<rtattr>(at);
        if (head.rta_len < sizeof(rtattr) || head.rta_len > length) {
            return;
        }
        visit(head.rta_type & NLA_TYPE_MASK, at + RTA_LENGTH(0), head.rta_len - RTA_LENGTH(0));
        const size_t step = RTA_ALIGN(head.rta_len);
        if (step >= length) {
            return;
        }
        at += step;
        length -= step;
    }
}

std::string Text(const uint8_t* data, size_t length)
{
    return std::string(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), length));
}

LINK_EVENT Empty(LINK_EVENT_KIND kind)
{
    return LINK_EVENT{kind, 0, std::string(), false, false, 0, 0};
}

// Carrier needs the lower layer up; an operational state or carrier attribute that says otherwise wins.
bool ParseLink(uint16_t type, const uint8_t* payload, size_t length, LINK_EVENT& event)
{
    if (length < NLMSG_ALIGN(sizeof(ifinfomsg))) {
        return false;
    }
    const ifinfomsg info = Load<ifinfomsg>(payload);
    // Bridge port notifications share the group; their deletions do not remove the link.
    if (info.ifi_family != AF_UNSPEC) {
        return false;
    }
    event = Empty(type == RTM_NEWLINK ? LINK_EVENT_NEW : LINK_EVENT_REMOVED);
    event.nIndex = info.ifi_index;
    event.bUp = (info.ifi_flags & IFF_UP) != 0;
    bool carrier = event.bUp && (info.ifi_flags & IFF_LOWER_UP) != 0;
    const size_t head = NLMSG_ALIGN(sizeof(ifinfomsg));
    ForEachAttribute(payload + head, length - head, [&](uint16_t attribute, const uint8_t* data, size_t size) {
        if (attribute == IFLA_IFNAME) {
            event.strName = Text(data, size);
        } else if (attribute == IFLA_OPERSTATE && size >= 1) {
            carrier = carrier && (data[0] == IF_OPER_UP || data[0] == IF_OPER_UNKNOWN);
        } else if (attribute == IFLA_CARRIER && size >= 1) {
            carrier = carrier && data[0] != 0;
        }
    });
    event.bCarrier = carrier;
    return true;
}

// The local address names this host's end; the plain address is the peer's on point-to-point links.
bool ParseAddress(uint16_t type, const uint8_t* payload, size_t length, LINK_EVENT& event)
{
    if (length < NLMSG_ALIGN(sizeof(ifaddrmsg))) {
        return false;
    }
    const ifaddrmsg info = Load<ifaddrmsg>(payload);
    if (info.ifa_family != AF_INET) {
        return false;
    }
    event = Empty(type == RTM_NEWADDR ? LINK_EVENT_ADDRESS_ADDED : LINK_EVENT_ADDRESS_REMOVED);
    event.nIndex = static_cast<int>(info.ifa_index);
    event.nPrefix = info.ifa_prefixlen;
    bool local = false;
    bool any = false;
    const size_t head = NLMSG_ALIGN(sizeof(ifaddrmsg));
    ForEachAttribute(payload + head, length - head, [&](uint16_t attribute, const uint8_t* data, size_t size) {
        if ((attribute == IFA_LOCAL || (attribute == IFA_ADDRESS && !local)) && size == 4) {
            event.nAddress = ntohl(Load<uint32_t>(data));
            local = local || attribute == IFA_LOCAL;
            any = true;
        } else if (attribute == IFA_LABEL) {
            event.strName = Text(data, size);
        }
    });
    return any;
}

// Calls visit(header, payload, length) for every whole message in [at, at + length).
template <class Visit>
void ForEachMessage(const uint8_t* at, size_t length, Visit visit)
{
    while (length >= NLMSG_HDRLEN) {
        const nlmsghdr head = Load<nlmsghdr>(at);
        if (head.nlmsg_len < NLMSG_HDRLEN || head.nlmsg_len > length) {
            return;
        }
        visit(head, at + NLMSG_HDRLEN, head.nlmsg_len - NLMSG_HDRLEN);
        const size_t step = NLMSG_ALIGN(head.nlmsg_len);
        if (step >= length) {
            return;
        }
        at += step;
        length -= step;
    }
}

// Whether the datagram ends the dump of request `sequence`, done or refused.
bool EndsDump(const uint8_t* buffer, size_t length, uint32_t sequence)
{
    bool ends = false;
    ForEachMessage(buffer, length, [&](const nlmsghdr& head, const uint8_t*, size_t) {
        ends = ends || (head.nlmsg_seq == sequence && (head.nlmsg_type == NLMSG_DONE || head.nlmsg_type == NLMSG_ERROR));
    });
    return ends;
}

} // namespace

std::vector<LINK_EVENT> ParseLinkMessages(const uint8_t* buffer, size_t length)
{
    std::vector<LINK_EVENT> events;
    ForEachMessage(buffer, length, [&](const nlmsghdr& head, const uint8_t* payload, size_t size) {
        LINK_EVENT event;
        const uint16_t type = head.nlmsg_type;
        if (((type == RTM_NEWLINK || type == RTM_DELLINK) && ParseLink(type, payload, size, event)) ||
            ((type == RTM_NEWADDR || type == RTM_DELADDR) && ParseAddress(type, payload, size, event))) {
            events.push_back(event);
        }
    });
    return events;
}

CLinkMonitor::CLinkMonitor() : m_vecBuffer(kMessageBuffer) {}

bool CLinkMonitor::Open(int* error)
{
    m_socket.Reset(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    sockaddr_nl local;
    memset(&local, 0, sizeof(local));
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
    if (!m_socket.IsOpen() || bind(m_socket.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof(local)) != 0) {
        if (error != nullptr) {
            *error = errno;
        }
        m_socket.Reset();
        return false;
    }
    GrowReceiveBuffer(m_socket.Get(), kReceiveBuffer);
    return true;
}

int CLinkMonitor::GetFd() const
{
    return m_socket.Get();
}

// After an overflow the queue holds only part of what happened: drop it and have the caller re-read.
std::vector<LINK_EVENT> CLinkMonitor::Read()
{
    std::vector<LINK_EVENT> events;
    bool lost = false;
    size_t length = 0;
    for (int reads = 0; reads < kReadsPerCall; ++reads) {
        const RECEIVED received = ReceiveOne(length, lost);
        if (received == RECEIVED_NOTHING) {
            break;
        }
        if (received == RECEIVED_DATAGRAM) {
            const std::vector<LINK_EVENT> parsed = ParseLinkMessages(m_vecBuffer.data(), length);
            events.insert(events.end(), parsed.begin(), parsed.end());
        }
    }
    if (lost) {
        return {Empty(LINK_EVENT_RESYNC)};
    }
    return events;
}

// Notifications that arrive meanwhile come back with the dump: they are events too.
std::vector<LINK_EVENT> CLinkMonitor::ReadLinks(uint64_t deadlineMs)
{
    struct {
        nlmsghdr head;
        ifinfomsg info;
    } request;
    memset(&request, 0, sizeof(request));
    request.head.nlmsg_len = sizeof(request);
    request.head.nlmsg_type = RTM_GETLINK;
    request.head.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.head.nlmsg_seq = ++m_nSequence;
    request.info.ifi_family = AF_UNSPEC;
    sockaddr_nl kernel;
    memset(&kernel, 0, sizeof(kernel));
    kernel.nl_family = AF_NETLINK;
    if (!m_socket.IsOpen() ||
        sendto(m_socket.Get(), &request, sizeof(request), 0, reinterpret_cast<const sockaddr*>(&kernel), sizeof(kernel)) < 0) {
        return {};
    }
    std::vector<LINK_EVENT> events;
    bool lost = false;
    size_t length = 0;
    for (;;) {
        const RECEIVED received = ReceiveOne(length, lost);
        if (received == RECEIVED_NOTHING && WaitReadable(m_socket.Get(), deadlineMs, nullptr) != WAIT_READY) {
            break;
        }
        if (received == RECEIVED_DATAGRAM) {
            const std::vector<LINK_EVENT> parsed = ParseLinkMessages(m_vecBuffer.data(), length);
            events.insert(events.end(), parsed.begin(), parsed.end());
            if (EndsDump(m_vecBuffer.data(), length, m_nSequence)) {
                break;
            }
        }
    }
    if (lost) {
        return {Empty(LINK_EVENT_RESYNC)};
    }
    return events;
}

CLinkMonitor::RECEIVED CLinkMonitor::ReceiveOne(size_t& length, bool& lost)
{
    sockaddr_nl from;
    memset(&from, 0, sizeof(from));
    socklen_t fromLength = sizeof(from);
    const ssize_t received = recvfrom(m_socket.Get(), m_vecBuffer.data(), m_vecBuffer.size(), MSG_TRUNC,
                                      reinterpret_cast<sockaddr*>(&from), &fromLength);
    if (received < 0 && (errno == EINTR || errno == ENOBUFS)) {
        lost = lost || errno == ENOBUFS;
        return RECEIVED_SKIPPED;
    }
    if (received < 0) {
        return RECEIVED_NOTHING;
    }
    // Only the kernel speaks for the links.
    if (from.nl_pid != 0) {
        return RECEIVED_SKIPPED;
    }
    // A datagram cut short is a lost one.
    if (static_cast<size_t>(received) > m_vecBuffer.size()) {
        lost = true;
        return RECEIVED_SKIPPED;
    }
    length = static_cast<size_t>(received);
    return RECEIVED_DATAGRAM;
}

LINK_CHANGE CLinkStates::Apply(const LINK_EVENT& event)
{
    switch (event.nKind) {
    case LINK_EVENT_NEW:
        return ApplyLink(event);
    case LINK_EVENT_REMOVED:
        m_mapCarrier.erase(event.nIndex);
        return LINK_CHANGE_REMOVED;
    case LINK_EVENT_ADDRESS_ADDED:
    case LINK_EVENT_ADDRESS_REMOVED:
        return LINK_CHANGE_ADDRESS;
    default:
        return LINK_CHANGE_RESYNC;
    }
}

// A link that comes with carrier may have a camera behind it that is booting, new or not.
LINK_CHANGE CLinkStates::ApplyLink(const LINK_EVENT& event)
{
    // Deletions lost in an overflow would otherwise stay for ever.
    if (m_mapCarrier.size() >= kLinkStatesMax && m_mapCarrier.count(event.nIndex) == 0) {
        m_mapCarrier.clear();
    }
    const auto known = m_mapCarrier.find(event.nIndex);
    const bool wasKnown = known != m_mapCarrier.end();
    const bool hadCarrier = wasKnown && known->second;
    m_mapCarrier[event.nIndex] = event.bCarrier;
    if (event.bCarrier && !hadCarrier) {
        return LINK_CHANGE_CARRIER_UP;
    }
    return wasKnown ? LINK_CHANGE_NONE : LINK_CHANGE_APPEARED;
}

} // namespace Client
} // namespace GenICam

#pragma once

#include "common/UniqueFd.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {

// What the kernel said about a link or one of its IPv4 addresses.
enum LINK_EVENT_KIND {
    LINK_EVENT_NEW = 0,          // a link appeared or changed: name, up, carrier
    LINK_EVENT_REMOVED,          // a link went away
    LINK_EVENT_ADDRESS_ADDED,    // an IPv4 address was added (or refreshed)
    LINK_EVENT_ADDRESS_REMOVED,  // an IPv4 address was removed
    LINK_EVENT_RESYNC,           // notifications were lost: read every interface again
};

struct LINK_EVENT {
    LINK_EVENT_KIND nKind;
    int nIndex;              // interface index; 0 for a resync
    std::string strName;     // link name, or the address's label
    bool bUp;                // administratively up (links only)
    bool bCarrier;           // up with its lower layer running (links only)
    uint32_t nAddress;       // host order (addresses only)
    uint8_t nPrefix;         // prefix length (addresses only)
};

// The link and IPv4 address events in a buffer of rtnetlink messages; anything else, and anything
// cut short, is skipped.
std::vector<LINK_EVENT> ParseLinkMessages(const uint8_t* buffer, size_t length);

// Listens to the kernel's link and IPv4 address notifications of the caller's network namespace.
class CLinkMonitor {
public:
    CLinkMonitor();

    // false with the errno in `error` (may be null) when the socket cannot be opened.
    bool Open(int* error);
    // Readable when notifications wait: for the caller's poll.
    int GetFd() const;
    // Drains what is queued without blocking; a lost notification yields one LINK_EVENT_RESYNC alone.
    std::vector<LINK_EVENT> Read();
    // Asks the kernel for every link and waits for the answer until the monotonic deadline or a stop:
    // a LINK_EVENT_NEW per link, to learn the links at start and again after a resync.
    std::vector<LINK_EVENT> ReadLinks(uint64_t deadlineMs);

private:
    enum RECEIVED { RECEIVED_NOTHING, RECEIVED_DATAGRAM, RECEIVED_SKIPPED };
    // One datagram into the buffer; `lost` is set when the kernel dropped some.
    RECEIVED ReceiveOne(size_t& length, bool& lost);

    CUniqueFd m_socket;
    uint32_t m_nSequence = 0;
    std::vector<uint8_t> m_vecBuffer;
};

// What an event means to a watch of the links.
enum LINK_CHANGE {
    LINK_CHANGE_NONE = 0,     // nothing to act on
    LINK_CHANGE_APPEARED,     // a link not known before, without carrier
    LINK_CHANGE_CARRIER_UP,   // a link gained carrier, or appeared with it: a camera behind it may be booting
    LINK_CHANGE_ADDRESS,      // an IPv4 address came or went
    LINK_CHANGE_REMOVED,      // a link went away
    LINK_CHANGE_RESYNC,       // events were lost: read every interface, and ReadLinks, again
};

// The carrier of every link, as the events told it. Applying what ReadLinks returns at start teaches it
// the links without acting on them; after a resync it turns the links' fresh state into changes.
class CLinkStates {
public:
    LINK_CHANGE Apply(const LINK_EVENT& event);

private:
    LINK_CHANGE ApplyLink(const LINK_EVENT& event);

    std::map<int, bool> m_mapCarrier;
};

} // namespace Client
} // namespace GenICam

#include "common/StopToken.h"
#include "link/LinkMonitor.h"
#include "support/NetNamespace.h"

#include <arpa/inet.h>
#include <cstring>
#include <gtest/gtest.h>
#include <linux/if.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <string>
#include <sys/socket.h>
#include <vector>

using namespace GenICam::Client;
using Bytes = std::vector<uint8_t>;

namespace {

// One rtnetlink message: header, fixed part, then attributes, each padded to four bytes.
struct Message {
    template <class Fixed>
    Message(uint16_t type, const Fixed& fixed) : m_nType(type)
    {
        Append(&fixed, sizeof(fixed));
    }
    Message& Attr(uint16_t type, const void* data, size_t size)
    {
        const rtattr head = {static_cast<unsigned short>(RTA_LENGTH(size)), type};
        Append(&head, sizeof(head));
        Append(data, size);
        return *this;
    }
    Message& Text(uint16_t type, const char* text) { return Attr(type, text, strlen(text) + 1); }
    Message& Byte(uint16_t type, uint8_t value) { return Attr(type, &value, 1); }
    Message& Ip(uint16_t type, const char* dotted)
    {
        const in_addr_t address = inet_addr(dotted);
        return Attr(type, &address, 4);
    }
    Bytes Done() const
    {
        Bytes out = m_bytes;
        const nlmsghdr head = {static_cast<uint32_t>(out.size()), m_nType, 0, 0, 0};
        memcpy(out.data(), &head, sizeof(head));
        return out;
    }
    void Append(const void* data, size_t size)
    {
        const uint8_t* p = static_cast<const uint8_t*>(data);
        m_bytes.insert(m_bytes.end(), p, p + size);
        m_bytes.resize(NLMSG_ALIGN(m_bytes.size()));
    }
    uint16_t m_nType;
    Bytes m_bytes = Bytes(NLMSG_HDRLEN);
};

Message Link(uint16_t type, int index, unsigned flags, const char* name, uint8_t family = AF_UNSPEC)
{
    ifinfomsg info = {};
    info.ifi_family = family;
    info.ifi_index = index;
    info.ifi_flags = flags;
    return std::move(Message(type, info).Text(IFLA_IFNAME, name));
}

Message Address(uint16_t type, int index, uint8_t prefix, uint8_t family = AF_INET)
{
    const ifaddrmsg info = {family, prefix, 0, 0, static_cast<uint32_t>(index)};
    return Message(type, info);
}

Bytes Join(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

std::string Describe(const std::vector<LINK_EVENT>& events)
{
    static const char* const kinds[] = {"new", "gone", "addr+", "addr-", "resync"};
    std::string out;
    for (const LINK_EVENT& e : events) {
        out += std::string(out.empty() ? "" : "; ") + kinds[e.nKind] + " " + e.strName;
        if (e.nKind == LINK_EVENT_NEW) {
            out += !e.bUp ? " down" : e.bCarrier ? " carrier" : " no-carrier";
        }
        if (e.nKind == LINK_EVENT_ADDRESS_ADDED || e.nKind == LINK_EVENT_ADDRESS_REMOVED) {
            const in_addr address = {htonl(e.nAddress)};
            out += std::string(" ") + inet_ntoa(address) + "/" + std::to_string(e.nPrefix);
        }
        out += " #" + std::to_string(e.nIndex);
    }
    return out;
}

const unsigned kUp = IFF_UP | IFF_RUNNING;
const unsigned kUpCarrier = IFF_UP | IFF_RUNNING | IFF_LOWER_UP;

} // namespace

TEST(LinkMessages, EveryKindOfNotificationAndWhatIsSkipped)
{
    const Bytes added = Address(RTM_NEWADDR, 3, 24).Ip(IFA_ADDRESS, "10.0.0.1").Ip(IFA_LOCAL, "10.0.0.1")
                            .Text(IFA_LABEL, "eth0:1").Done();
    Bytes cutShort = Link(RTM_NEWLINK, 4, kUpCarrier, "eth1").Done();
    cutShort.resize(cutShort.size() - 4);
    // The operational state attribute, after the name's, claims more bytes than the message holds.
    Bytes overlong = Link(RTM_NEWLINK, 3, kUpCarrier, "eth0").Byte(IFLA_OPERSTATE, IF_OPER_DOWN).Done();
    overlong[NLMSG_HDRLEN + sizeof(ifinfomsg) + RTA_SPACE(5)] = 200;
    const struct {
        const char* name;
        Bytes buffer;
        const char* expected;
    } cases[] = {
        {"carrier", Link(RTM_NEWLINK, 3, kUpCarrier, "eth0").Byte(IFLA_OPERSTATE, IF_OPER_UP).Done(),
         "new eth0 carrier #3"},
        {"no operational state from the driver", Link(RTM_NEWLINK, 3, kUpCarrier, "eth0")
             .Byte(IFLA_OPERSTATE, IF_OPER_UNKNOWN).Done(), "new eth0 carrier #3"},
        {"cable out", Link(RTM_NEWLINK, 3, kUp, "eth0").Byte(IFLA_OPERSTATE, IF_OPER_DOWN).Done(),
         "new eth0 no-carrier #3"},
        {"lower layer up but dormant", Link(RTM_NEWLINK, 3, kUpCarrier, "eth0")
             .Byte(IFLA_OPERSTATE, IF_OPER_DORMANT).Done(), "new eth0 no-carrier #3"},
        {"carrier attribute says no", Link(RTM_NEWLINK, 3, kUpCarrier, "eth0").Byte(IFLA_CARRIER, 0).Done(),
         "new eth0 no-carrier #3"},
        {"administratively down", Link(RTM_NEWLINK, 3, IFF_LOWER_UP, "eth0").Done(), "new eth0 down #3"},
        {"link deleted", Link(RTM_DELLINK, 3, 0, "eth0").Done(), "gone eth0 #3"},
        {"a port leaving a bridge is no deletion", Link(RTM_DELLINK, 3, 0, "eth0", AF_BRIDGE).Done(), ""},
        {"address with a label", added, "addr+ eth0:1 10.0.0.1/24 #3"},
        {"point-to-point: the local end, not the peer", Address(RTM_NEWADDR, 5, 32).Ip(IFA_LOCAL, "10.8.0.1")
             .Ip(IFA_ADDRESS, "10.8.0.2").Done(), "addr+  10.8.0.1/32 #5"},
        {"address removed", Address(RTM_DELADDR, 3, 16).Ip(IFA_ADDRESS, "172.16.0.9").Done(),
         "addr-  172.16.0.9/16 #3"},
        {"IPv6 is not watched", Address(RTM_NEWADDR, 3, 64, AF_INET6).Done(), ""},
        {"several in one datagram, control messages skipped",
         Join({Link(RTM_NEWLINK, 3, kUp, "eth0").Done(), Message(NLMSG_DONE, 0).Done(), added}),
         "new eth0 no-carrier #3; addr+ eth0:1 10.0.0.1/24 #3"},
        {"a message cut short ends the datagram", Join({added, cutShort}), "addr+ eth0:1 10.0.0.1/24 #3"},
        {"an attribute longer than its message is not read", overlong, "new eth0 carrier #3"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Describe(ParseLinkMessages(c.buffer.data(), c.buffer.size())), c.expected) << c.name;
    }
    // Any prefix of a datagram parses without reading past it.
    const Bytes whole = Join({added, Link(RTM_NEWLINK, 3, kUpCarrier, "eth0").Done()});
    for (size_t length = 0; length < whole.size(); ++length) {
        const Bytes prefix(whole.begin(), whole.begin() + static_cast<long>(length));
        EXPECT_LE(ParseLinkMessages(prefix.data(), prefix.size()).size(), 1u) << length;
    }
}

namespace {

class LinkMonitorNamespace : public aictest::NetNamespaceTest {
protected:
    // Reads events until their description holds `needle` or two seconds pass.
    std::string ReadUntil(CLinkMonitor& monitor, const std::string& needle)
    {
        std::string seen;
        const uint64_t deadline = MonotonicMs() + 2000;
        while (seen.find(needle) == std::string::npos &&
               WaitReadable(monitor.GetFd(), deadline, nullptr) == WAIT_READY) {
            seen += Describe(monitor.Read()) + "\n";
        }
        return seen;
    }
};

} // namespace

TEST_F(LinkMonitorNamespace, DumpNotificationsAndAnOverflowOfAVethPair)
{
    Sh("ip link add lm0 type veth peer name lm1");
    CLinkMonitor monitor;
    ASSERT_TRUE(monitor.Open(nullptr));
    const uint64_t start = MonotonicMs();
    const std::string links = Describe(monitor.ReadLinks(start + 2000));
    EXPECT_LT(MonotonicMs() - start, 1000u) << "the dump ends at the kernel's done, not the deadline";
    EXPECT_NE(links.find("new lo carrier #1"), std::string::npos) << links;
    EXPECT_NE(links.find("new lm1 down"), std::string::npos) << links;
    const struct {
        const char* command;
        const char* expected;
    } steps[] = {
        {"ip link set lm0 up && ip link set lm1 up", "new lm0 carrier"},
        {"ip addr add 10.9.0.1/24 dev lm0", "addr+ lm0 10.9.0.1/24"},
        {"ip link set lm1 down", "new lm0 no-carrier"},
        {"ip link del lm0", "gone lm0"},
    };
    for (const auto& step : steps) {
        Sh(step.command);
        const std::string seen = ReadUntil(monitor, step.expected);
        EXPECT_NE(seen.find(step.expected), std::string::npos) << step.command << " gave:\n" << seen;
    }
    const int tiny = 1; // the kernel rounds it up to its minimum: a few messages
    ASSERT_EQ(setsockopt(monitor.GetFd(), SOL_SOCKET, SO_RCVBUF, &tiny, sizeof(tiny)), 0);
    Sh("seq 1 20 | sed 's/.*/link add ov& type veth peer name ow&/' | ip -batch -");
    ASSERT_EQ(WaitReadable(monitor.GetFd(), MonotonicMs() + 2000, nullptr), WAIT_READY);
    EXPECT_EQ(Describe(monitor.Read()), "resync  #0") << "an overflow is one resync";
    Sh("ip link set ov1 up");
    EXPECT_NE(ReadUntil(monitor, "new ov1 no-carrier").find("new ov1 no-carrier"), std::string::npos);
}

TEST(LinkStates, WhatEachEventMeansToTheWatch)
{
    const auto link = [](LINK_EVENT_KIND kind, int index, bool carrier) {
        return LINK_EVENT{kind, index, "eth", true, carrier, 0, 0};
    };
    const struct {
        LINK_EVENT event;
        LINK_CHANGE change;
        const char* why;
    } steps[] = {
        {link(LINK_EVENT_NEW, 3, false), LINK_CHANGE_APPEARED, "a new link without carrier"},
        {link(LINK_EVENT_NEW, 3, false), LINK_CHANGE_NONE, "told again"},
        {link(LINK_EVENT_NEW, 3, true), LINK_CHANGE_CARRIER_UP, "cable in"},
        {link(LINK_EVENT_NEW, 3, true), LINK_CHANGE_NONE, "still in"},
        {link(LINK_EVENT_NEW, 3, false), LINK_CHANGE_NONE, "cable out"},
        {link(LINK_EVENT_NEW, 3, true), LINK_CHANGE_CARRIER_UP, "in again"},
        {link(LINK_EVENT_ADDRESS_ADDED, 3, false), LINK_CHANGE_ADDRESS, "address added"},
        {link(LINK_EVENT_ADDRESS_REMOVED, 3, false), LINK_CHANGE_ADDRESS, "address removed"},
        {link(LINK_EVENT_NEW, 4, true), LINK_CHANGE_CARRIER_UP, "a new link with carrier"},
        {link(LINK_EVENT_REMOVED, 4, false), LINK_CHANGE_REMOVED, "removed"},
        {link(LINK_EVENT_NEW, 4, true), LINK_CHANGE_CARRIER_UP, "made again, with carrier"},
        {link(LINK_EVENT_RESYNC, 0, false), LINK_CHANGE_RESYNC, "lost events"},
        {link(LINK_EVENT_NEW, 3, true), LINK_CHANGE_NONE, "the dump after it: unchanged"},
        {link(LINK_EVENT_NEW, 4, false), LINK_CHANGE_NONE, "the dump after it: carrier lost"},
    };
    CLinkStates states;
    for (const auto& s : steps) {
        EXPECT_EQ(states.Apply(s.event), s.change) << s.why;
    }
}

// The ARP probe's reply test: CARP::DetectIP sends its request out of one end of a veth pair; a
// fake host on the other end answers with a fuzzed frame of the type the probe listens for.
#include "FuzzNet.h"

#include "device/ARP.h"

#include <arpa/inet.h>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

const char kProbeIf[] = "fz0";
const char kPeerIf[] = "fz1";
const size_t kMaxFrame = 1514;
const size_t kHeader = 14;
const uint8_t kListenedType[2] = {0x80, 0x35}; // the probe's socket filters on this type

// Local addresses to probe from; the short ones make the probe's one-byte match reachable.
const char* const kLocalIPs[] = {"10.98.0.1", "7.0.0.0", "1.0.0.0", "0.0.0.0"};

std::string MacText(int fd, const char* name)
{
    ifreq request = {};
    strncpy(request.ifr_name, name, IFNAMSIZ - 1);
    FUZZ_CHECK(ioctl(fd, SIOCGIFHWADDR, &request) == 0);
    const unsigned char* mac = reinterpret_cast<const unsigned char*>(request.ifr_hwaddr.sa_data);
    char text[18];
    snprintf(text, sizeof(text), "%02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

struct Link {
    Link()
    {
        aicfuzz::Sh("echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6 && "
                    "ip link add fz0 address 02:00:00:00:fa:01 type veth peer name fz1 && ip link set fz0 up && ip link set fz1 up");
        peer = socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ARP));
        FUZZ_CHECK(peer >= 0);
        sockaddr_ll address = {};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_ARP);
        address.sll_ifindex = static_cast<int>(if_nametoindex(kPeerIf));
        FUZZ_CHECK(bind(peer, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0);
        peerIndex = address.sll_ifindex;
        probeMac = MacText(peer, kProbeIf);
    }
    ~Link() { close(peer); }

    int peer;
    int peerIndex;
    std::string probeMac;
    aicfuzz::Worker host;
};

// Waits for the probe's request on the peer end, then sends the frame back.
void Answer(Link& link, std::vector<uint8_t> frame)
{
    std::vector<uint8_t> request(kMaxFrame);
    pollfd ready = {link.peer, POLLIN, 0};
    FUZZ_CHECK(poll(&ready, 1, 2000) == 1);
    FUZZ_CHECK(recv(link.peer, request.data(), request.size(), 0) == 60);
    sockaddr_ll to = {};
    to.sll_family = AF_PACKET;
    to.sll_ifindex = link.peerIndex;
    to.sll_halen = 6;
    FUZZ_CHECK(sendto(link.peer, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof(to)) ==
               static_cast<ssize_t>(frame.size()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    aicfuzz::EnterPrivateNetwork();
    static Link link;
    aicfuzz::ByteReader input(data, size);
    const char* localIP = kLocalIPs[input.Byte() % (sizeof(kLocalIPs) / sizeof(kLocalIPs[0]))];
    std::vector<uint8_t> frame = input.Bytes(kMaxFrame);
    if (frame.size() < kHeader) {
        frame.resize(kHeader);
    }
    memcpy(&frame[12], kListenedType, sizeof(kListenedType));

    link.host.Post([&] { Answer(link, frame); });
    const bool taken = CARP().DetectIP(localIP, "10.98.0.20", link.probeMac.c_str(), kProbeIf);
    link.host.Wait();
    // Only a reply (operation 2) can mark an address taken.
    const bool isReply = frame.size() >= 22 && frame[20] == 0 && frame[21] == 2;
    FUZZ_CHECK(!taken || isReply);
    return 0;
}

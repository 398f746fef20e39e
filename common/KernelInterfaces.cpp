#include "common/KernelInterfaces.h"

#include "common/UniqueFd.h"
#include "common/ipcalc.h"
#include "common/Identity.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace GenICam {
namespace Client {

namespace {

uint32_t AddressOf(const sockaddr& address)
{
    sockaddr_in in;
    memcpy(&in, &address, sizeof(in));
    return ntohl(in.sin_addr.s_addr);
}

KERNEL_ADDRESS ReadEntry(int fd, const ifreq& listed)
{
    // The kernel's name field need not end in a NUL when it is full.
    const std::string name(listed.ifr_name, strnlen(listed.ifr_name, IFNAMSIZ));
    KERNEL_ADDRESS entry{name, AddressOf(listed.ifr_addr), 0, std::string(), false, false};
    ifreq request;
    memset(&request, 0, sizeof(request));
    memcpy(request.ifr_name, name.data(), std::min(name.size(), sizeof(request.ifr_name) - 1));
    if (ioctl(fd, SIOCGIFNETMASK, &request) == 0) {
        entry.nMask = AddressOf(request.ifr_netmask);
        entry.bHasMask = true;
    }
    if (ioctl(fd, SIOCGIFHWADDR, &request) == 0) {
        memcpy(entry.aMAC, request.ifr_hwaddr.sa_data, sizeof(entry.aMAC));
        entry.strMAC = MacText(entry.aMAC);
        entry.bHasMAC = true;
    }
    if (ioctl(fd, SIOCGIFFLAGS, &request) == 0) {
        entry.bUp = (request.ifr_flags & IFF_UP) != 0;
        entry.bCarrier = (request.ifr_flags & IFF_RUNNING) != 0;
        entry.bHasFlags = true;
    }
    entry.nIndex = if_nametoindex(DeviceNameOf(name).c_str());
    return entry;
}

} // namespace

std::vector<KERNEL_ADDRESS> ReadKernelAddresses(size_t limit)
{
    std::vector<KERNEL_ADDRESS> entries;
    const CUniqueFd socketFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const int fd = socketFd.Get();
    if (fd < 0) {
        return entries;
    }
    std::vector<ifreq> listed(limit);
    ifconf conf{};
    conf.ifc_len = static_cast<int>(listed.size() * sizeof(ifreq));
    conf.ifc_req = listed.data();
    if (ioctl(fd, SIOCGIFCONF, &conf) == 0) {
        for (size_t i = 0; i < conf.ifc_len / sizeof(ifreq); ++i) {
            entries.push_back(ReadEntry(fd, listed[i]));
        }
    }
    return entries;
}

} // namespace Client
} // namespace GenICam

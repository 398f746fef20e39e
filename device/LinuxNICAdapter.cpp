#include "device/LinuxNICAdapter.h"

#include "common/Helper.h"
#include "common/ipcalc.h"
#include "common/InstanceFactory.h"
#include "device/InterfaceSurvey.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace GenICam {
namespace Client {

namespace {

in_addr AddressOf(const ifreq& request)
{
    sockaddr_in address;
    memcpy(&address, &request.ifr_addr, sizeof(address));
    return address.sin_addr;
}

void SetAddressPair(std::vector<uint32_t>& number, std::vector<std::string>& text, in_addr address)
{
    number.assign(1, ntohl(address.s_addr));
    text.assign(1, inet_ntoa(address));
}

} // namespace

void CLinuxNICAdapter::GetInterfaceList(std::vector<NIC_INFO>& list)
{
    // One work record for all entries, never reset: a failed query keeps the previous entry's value.
    NIC_INFO work;
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq entries[kInterfaceEntryLimit];
    memset(entries, 0, sizeof(entries));
    ifconf conf{};
    conf.ifc_len = sizeof(entries);
    conf.ifc_req = entries;
    if (fd >= 0 && ioctl(fd, SIOCGIFCONF, &conf) == 0) {
        const int count = conf.ifc_len / static_cast<int>(sizeof(ifreq));
        for (int i = count - 1; i >= 0; --i) {
            char* name = entries[i].ifr_name;
            if (IsSkippedInterfaceName(name)) {
                continue;
            }
            work.strName = name;
            work.strDescription = name;

            ifreq request;
            memset(&request, 0, sizeof(request));
            strncpy(request.ifr_name, name, IFNAMSIZ - 1);
            ioctl(fd, SIOCGIFFLAGS, &request);
            if (ioctl(fd, SIOCGIFADDR, &request) == 0) {
                SetAddressPair(work.vecIntIP, work.vecStrIP, AddressOf(request));
            }
            in_addr gateway;
            gateway.s_addr = __NetGetGateway(name);
            SetAddressPair(work.vecIntGateway, work.vecStrGateway, gateway);
            if (ioctl(fd, SIOCGIFNETMASK, &request) == 0) {
                SetAddressPair(work.vecIntSubnetMask, work.vecStrSubnetMask, AddressOf(request));
            }
            if (ioctl(fd, SIOCGIFHWADDR, &request) == 0) {
                const unsigned char* mac = reinterpret_cast<unsigned char*>(request.ifr_hwaddr.sa_data);
                work.strMAC = MacText(mac);
                memcpy(work.aHexMAC, mac, 6);
            }
            list.push_back(work);
        }
    }
    close(fd);
}

unsigned int CLinuxNICAdapter::__NetGetGateway(char* ifName)
{
    FILE* file = fopen("/proc/net/route", "r");
    if (file == nullptr) {
        return 0;
    }
    char line[130] = {0};
    unsigned int gateway = 0;
    if (fgets(line, sizeof(line), file) != nullptr) {
        while (fgets(line, sizeof(line), file) != nullptr) {
            if (__NetSearchGateway(ifName, line, &gateway) == 0) {
                fclose(file);
                return gateway;
            }
        }
    }
    fclose(file);
    return 0;
}

int CLinuxNICAdapter::__NetSearchGateway(char* ifName, char* line, unsigned int* gateway)
{
    char name[16] = {0};
    unsigned long destination = 0;
    unsigned long via = 0;
    unsigned int flags = 0;
    if (sscanf(line, "%15s\t%08lX\t%08lX\t%8X\t", name, &destination, &via, &flags) != 4) {
        return -1;
    }
    // Route up and via a gateway; the destination is not examined.
    if (strcmp(name, ifName) != 0 || (flags & 3) != 3) {
        return -1;
    }
    *gateway = static_cast<unsigned int>(via);
    return 0;
}

INICAdapter* CInstanceFactory::CreateNICAdapterIntstance()
{
    return new CLinuxNICAdapter();
}

void CInstanceFactory::DestoryNICAdapterIntstance(INICAdapter* adapter)
{
    delete adapter;
}

} // namespace Client
} // namespace GenICam

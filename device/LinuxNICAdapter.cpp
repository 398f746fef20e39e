#include "device/LinuxNICAdapter.h"

#include "common/Helper.h"
#include "common/ipcalc.h"
#include "common/InstanceFactory.h"
#include "common/KernelInterfaces.h"
#include "device/InterfaceSurvey.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>

namespace GenICam {
namespace Client {

namespace {

void SetAddressPair(std::vector<uint32_t>& number, std::vector<std::string>& text, uint32_t address)
{
    number.assign(1, address);
    text.assign(1, DottedText(address));
}

} // namespace

void CLinuxNICAdapter::GetInterfaceList(std::vector<NIC_INFO>& list)
{
    // One work record for all entries, never reset: a failed query keeps the previous entry's value.
    NIC_INFO work;
    const std::vector<KERNEL_ADDRESS> entries = ReadKernelAddresses(kInterfaceEntryLimit);
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        if (IsSkippedInterfaceName(entry->strName)) {
            continue;
        }
        work.strName = entry->strName;
        work.strDescription = entry->strName;
        SetAddressPair(work.vecIntIP, work.vecStrIP, entry->nIP);
        std::vector<char> name(entry->strName.begin(), entry->strName.end());
        name.push_back('\0');
        SetAddressPair(work.vecIntGateway, work.vecStrGateway, ntohl(__NetGetGateway(name.data())));
        if (entry->bHasMask) {
            SetAddressPair(work.vecIntSubnetMask, work.vecStrSubnetMask, entry->nMask);
        }
        if (entry->bHasMAC) {
            work.strMAC = entry->strMAC;
            memcpy(work.aHexMAC, entry->aMAC, 6);
        }
        list.push_back(work);
    }
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

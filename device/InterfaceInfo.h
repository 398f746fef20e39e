#pragma once

#include "device/NICAdapter.h"

#include <cstdint>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {

// Snapshot of one host interface; its MAC address is its identity.
class CInterfaceInfo {
public:
    explicit CInterfaceInfo(const NIC_INFO& nic);
    CInterfaceInfo(CInterfaceInfo& other);
    CInterfaceInfo& operator=(const CInterfaceInfo& other);
    virtual ~CInterfaceInfo();

    virtual void GetInfo(int id, int* type, void* buffer, unsigned long* size);

    bool IsMyID(const std::string& id) const;
    bool IsSameInterface(const CInterfaceInfo& other) const;
    bool operator==(const CInterfaceInfo& other) const;

    void GetHexMAC(unsigned char* mac);
    uint64_t GetInt64MAC();

    uint32_t GetIntIP(unsigned int index);
    std::string GetStrIP(unsigned int index);
    uint32_t GetIntSubnetMask(unsigned int index);
    std::string GetStrSubnetMask(unsigned int index);
    uint32_t GetIntGateway(unsigned int index);
    std::string GetStrGateway(unsigned int index);

    size_t GetNumGateways();
    size_t GetNumSubnets();

    std::string GetDisplayName() const;
    std::string GetStrMAC() const;
    std::string GetStrDescription() const;

private:
    std::string m_strID;
    std::string m_strDisplayName;
    std::vector<uint32_t> m_vecIntIP;
    std::vector<uint32_t> m_vecIntSubnetMask;
    std::vector<uint32_t> m_vecIntGateway;
    std::vector<std::string> m_vecStrIP;
    std::vector<std::string> m_vecStrSubnetMask;
    std::vector<std::string> m_vecStrGateway;
    std::string m_strMAC;
    std::string m_strDescription;
    std::string m_strName;
    unsigned char m_aHexMAC[6];
};

} // namespace Client
} // namespace GenICam

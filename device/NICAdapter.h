#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {

// One kernel interface address entry. Each vector holds at most one element in practice.
struct NIC_INFO {
    std::vector<uint32_t> vecIntIP;
    std::vector<uint32_t> vecIntGateway;
    std::vector<uint32_t> vecIntSubnetMask;
    unsigned char aHexMAC[6] = {0};
    std::vector<std::string> vecStrIP;
    std::vector<std::string> vecStrSubnetMask;
    std::vector<std::string> vecStrGateway;
    std::string strMAC;
    std::string strDescription;
    std::string strName;
};

// Enumerates the host's IPv4 interfaces.
class INICAdapter {
public:
    virtual ~INICAdapter() = default;
    // Appends one record per usable interface address entry; never clears the list.
    virtual void GetInterfaceList(std::vector<NIC_INFO>& list) = 0;
};

} // namespace Client
} // namespace GenICam

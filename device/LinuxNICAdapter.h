#pragma once

#include "device/NICAdapter.h"

namespace GenICam {
namespace Client {

// Reads the interfaces with socket ioctls and the gateways from "/proc/net/route".
class CLinuxNICAdapter : public INICAdapter {
public:
    void GetInterfaceList(std::vector<NIC_INFO>& list) override;

private:
    unsigned int __NetGetGateway(char* ifName);
    int __NetSearchGateway(char* ifName, char* line, unsigned int* gateway);
};

} // namespace Client
} // namespace GenICam

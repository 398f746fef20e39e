#pragma once

#include <string>

namespace GenICam {
namespace Client {

class CLinuxAPI;
class INICAdapter;
class CUdpComm;
class CGVCPDiscoveryPort;
class CDeviceDiscovery;
class CGVCPCtrlPort;

// Creates and destroys the platform and protocol objects. Each pair is defined beside the class it
// creates, so this layer depends on nothing above it. Destroy operations accept null.
class CInstanceFactory {
public:
    static CLinuxAPI* CreateLinuxAPIIntstance();
    static void DestoryLinuxAPIIntstance(CLinuxAPI* api);

    static INICAdapter* CreateNICAdapterIntstance();
    static void DestoryNICAdapterIntstance(INICAdapter* adapter);

    static CUdpComm* CreateUdpCommIntstance();
    static void DestoryUdpCommIntstance(CUdpComm* comm);

    static CGVCPDiscoveryPort* CreateGVCPDiscoveryPortIntstance(unsigned int ip, bool flag, std::string name);
    static void DestoryGVCPDiscoveryPortIntstance(CGVCPDiscoveryPort* port);

    static CDeviceDiscovery* CreateDeviceDiscoveryIntstance(unsigned int ip, std::string name);
    static void DestoryDeviceDiscoveryIntstance(CDeviceDiscovery* discovery);

    static CGVCPCtrlPort* CreateGVCPCtrlPortIntstance(unsigned int interfaceIP, unsigned int deviceIP,
                                                      std::string name);
    static void DestoryGVCPCtrlPortIntstance(CGVCPCtrlPort* port);
};

} // namespace Client
} // namespace GenICam

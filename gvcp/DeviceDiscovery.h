#pragma once

#include "gvcp/GvcpProtocol.h"

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {

class CDeviceInfo;
class CGVCPDiscoveryPort;

// Broadcasts one discovery command on an interface and gathers the acknowledges.
class CDeviceDiscovery {
public:
    CDeviceDiscovery(unsigned int ip, std::string name);
    virtual ~CDeviceDiscovery();
    CDeviceDiscovery(const CDeviceDiscovery&) = delete;
    CDeviceDiscovery& operator=(const CDeviceDiscovery&) = delete;

    virtual void SendDiscoveryCmd();
    virtual void GetDeviceInfoList(std::vector<boost::shared_ptr<CDeviceInfo>>& list, unsigned long timeoutMs);

private:
    bool __IsDeviceInlist(std::vector<boost::shared_ptr<CDeviceInfo>>& list,
                          const boost::shared_ptr<CDeviceInfo>& info);
    std::string __GetVendorMacFlag();
    bool __CheckVendorMacFlag(const ZQ_DISCOVERY_ACK& ack);

    void __DiagPass(unsigned int repeated, size_t found) const;

    CGVCPDiscoveryPort* m_pDiscoveryPort;
    std::string m_strVendorMacFlag;
    std::string m_strName;
};

} // namespace Client
} // namespace GenICam

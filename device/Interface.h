#pragma once

#include "device/InterfaceInfo.h"
#include "device/ZqObjectBase.h"

#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <pthread.h>
#include <string>
#include <unordered_map>
#include <vector>

namespace GenICam {
namespace Client {

class CTL;
class CDevice;
class CDeviceInfo;

// One host interface: its snapshot, the discovery records seen through it and a device per record.
class CInterface : public CZqObjectBase {
public:
    CInterface(boost::shared_ptr<CInterfaceInfo> info, CTL* tl);
    ~CInterface() override;
    CInterface(const CInterface&) = delete;
    CInterface& operator=(const CInterface&) = delete;

    virtual bool IsMe(const std::string& id);
    virtual void GetNumDevices(unsigned int* count);
    virtual void GetDeviceID(unsigned int index, std::string& id);
    virtual void GetInfo(int id, int* type, void* buffer, unsigned long* size);
    virtual void UpdateDeviceList(bool* changed, unsigned long timeout);

    void StartUpdateThread();
    static void* OnThreadUpdateDeviceList(void* self);
    void KillUpdateThread();
    pthread_t GetThreadHandle();
    void ClearThreadHandle();

    bool IsMyInfo(const boost::shared_ptr<CInterfaceInfo>& info) const;
    void SetInterfaceInfo(const boost::shared_ptr<CInterfaceInfo>& info);

    std::vector<CDevice*>* GetDeviceList();
    bool GetDevObjByID(std::string id, CDevice** device);
    bool GetDevObjByID(std::string id, const CDevice** device);
    bool IsExitSameIP(char* ip);
    void ReleaseDevice(const std::string& id);

    unsigned int GetInterfaceIP();
    unsigned int GetInterfaceSubnetMask();
    std::string GetInterfaceStrIP();
    std::string GetInterfaceStrSubNet();
    std::string GetInterfaceStrGateWay();
    std::string GetInterfaceDescription();
    void GetHexMAC(unsigned char* mac);
    std::string GetStrMAC();
    std::string GetDisplayName() const;

private:
    void __UpdateDeviceListInfo();
    bool __FindDeviceInfo(CDevice* device);
    bool __IsDeviceInfoListChange(std::vector<boost::shared_ptr<CDeviceInfo>>& records);
    bool __IsDevcieInfoKnown(const boost::shared_ptr<CDeviceInfo>& record);
    void __GetAllDeviceStatus(std::vector<boost::shared_ptr<CDeviceInfo>>& records);
    bool __ReuseKnownStatus(CDeviceInfo& record);
    bool __IsInSameSubnet(unsigned int ifIP, unsigned int ifMask, unsigned int devIP, unsigned int devMask);

    boost::shared_ptr<CInterfaceInfo> m_pInterfaceInfo;
    CTL* m_pTL;
    boost::recursive_mutex m_DeviceListMutex;
    std::vector<boost::shared_ptr<CDeviceInfo>> m_vecDeviceInfo;
    // The same records by ID, so that a pass over 1000 answers does not compare each with every known one.
    std::unordered_map<std::string, boost::shared_ptr<CDeviceInfo>> m_mapDeviceInfo;
    std::vector<CDevice*> m_vecDevice;
    boost::recursive_mutex m_DeviceInfoListMutex;
    boost::recursive_mutex m_DiscoveryMutex;
    pthread_t m_hUpdateThread;
};

// Orders discovery records by MAC text.
struct DeviceInfoPtrOps {
    bool operator()(const boost::shared_ptr<CDeviceInfo>& a, const boost::shared_ptr<CDeviceInfo>& b) const;
};

} // namespace Client
} // namespace GenICam

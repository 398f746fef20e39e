#pragma once

#include <string>
#include <vector>

namespace GenICam {
namespace Client {

class CTL;
class CDevice;
class CInterface;

// Same device identifier.
struct CCmpareSameDevice {
    bool operator()(CDevice* a, CDevice* b) const;
};
struct CCmpareDeviceIP {
    bool operator()(CDevice* device, unsigned int ip) const;
};
struct CCmpareInterfaceIP {
    bool operator()(CInterface* itf, unsigned int ip) const;
};

// Root of the device model (a process-wide singleton). Its int operations are error boundaries.
class CDeviceManager {
public:
    virtual ~CDeviceManager();

    static CDeviceManager* GetInstanse();
    static void ReleaseInstance();

    int InitEnvironment();
    int UnInitEnvironment();
    int UpdateDeviceList(unsigned long timeout);
    // Discovers only behind these kernel links; the other interfaces keep the lists they had.
    int UpdateDeviceListOn(unsigned long timeout, const std::vector<std::string>& links);
    CTL* GetTLObject();

    bool GetDevObjByID(std::string id, const CDevice** device);
    bool GetDevObjByID(std::string id, CDevice** device);
    void GetAllDevice(std::vector<CDevice*>* devices);
    bool IsExitSameIP(char* ip);
    bool CheckDeviceFromList(std::vector<std::string> ids);
    bool GetCheckResult();
    std::string GetLastErrorDescription();

private:
    CDeviceManager();

    int __UpdateDeviceLists(unsigned long timeout, const std::vector<std::string>* links);
    void __DeleteRepeatDevices();
    void __SetSameInterfaceFlag();
    void __SetSameDeviceFlag();
    void __GetAllDevice(std::vector<CDevice*>& devices);
    bool __IsSubset(std::vector<std::string>& wanted, std::vector<std::string>& present);

    CTL* m_pTL;
    bool m_bCheckResult;

    static CDeviceManager* m_pTLManager;
    static bool ms_bUpdateFlag;
};

} // namespace Client
} // namespace GenICam

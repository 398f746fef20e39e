#pragma once

#include "device/ZqObjectBase.h"
#include "gvcp/DeviceInfo.h"
#include "gvcp/GvcpProtocol.h"
#include "gvcp/GvcpResult.h"

#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <cstdint>
#include <string>

namespace GenICam {
namespace Client {

class CTL;
class CInterface;
class CGVCPCtrlPort;

// A live device behind an interface; the interface owns it.
class CDevice : public CZqObjectBase {
public:
    CDevice(CTL* tl, CInterface* itf, boost::shared_ptr<CDeviceInfo> info);
    ~CDevice() override;

    virtual bool IsMe(std::string const& id);

    CInterface* GetIF();
    std::string GetDevID() const;
    std::string GetStrIP() const;
    std::string GetSN() const;
    std::string GetModelName() const;
    std::string GetStrMac() const;
    unsigned int GetIntIP() const;
    unsigned int GetIntSubNetMask();
    unsigned int GetDevMode();
    unsigned int GetHostSubnetMask();

    void SetDeviceInfo(boost::shared_ptr<CDeviceInfo> const& info);
    bool IsMyIP(std::string const& ip) const;
    bool IsSameSubnetWithIF(char* ip, char* mask, char* gateway) const;
    bool IsSameSubnetWithIF() const;
    bool IsImplemented(MANUFACTURER_SPECIFIC_INFORMATION bits) const;
    bool IsAnyoneHasTheIP(char* ip) const;
    void ReleaseMeFromList();

    bool SetForceIPEx(char const* ip, char const* mask, char const* gateway, char const* text,
                      unsigned int ipConfig, std::string& error);
    // Standard GigE Vision only: FORCEIP with the address, which lasts until the device restarts, then
    // the persistent-IP registers under control privilege. `persistent` says whether they took it.
    bool SetStandardForceIP(unsigned int ip, unsigned int mask, unsigned int gateway, bool& persistent,
                            std::string& error);
    // What the last force-IP saw: the move, and on the standard path the store and the give-back.
    const FORCEIP_OUTCOME& GetForceIPOutcome() const;
    bool SendCustomControlCommand(FORCEIP_EX_CMD_DEF const& command) const;
    bool Reset(unsigned int value) const;

protected:
    // The control port the persistent store runs through; tests put a scripted one here.
    virtual CGVCPCtrlPort* _CreateCtrlPort(unsigned int deviceIP) const;
    // The persistent-IP registers under control privilege, filling the store and give-back outcomes.
    bool _StorePersistentIP(unsigned int ip, unsigned int mask, unsigned int gateway) const;

private:
    void __SetDeviceAccessStatus(int value);
    void __SendForceIPExCmd(char const* ip, char const* mask, char const* gateway, char const* text,
                            unsigned int ipConfig) const;
    void __SendForceIPCmd() const;
    GVCP_RESULT __SendStaticForceIPCmd(unsigned int ip, unsigned int mask, unsigned int gateway,
                                       std::string& error) const;
    GVCP_RESULT __GiveControlBack(CGVCPCtrlPort& port, const std::string& name) const;
    void __NoteUnsentMove();
    std::string __DiagName() const;

    boost::recursive_mutex m_Mutex;
    [[maybe_unused]] CTL* m_pTL; // the device keeps its transport layer, though no operation reads it
    CInterface* m_pInterface;
    boost::shared_ptr<CDeviceInfo> m_pDeviceInfo;
    // Kept apart from the error text, which the reports no longer read for a reason.
    mutable FORCEIP_OUTCOME m_stForceIP;
};

} // namespace Client
} // namespace GenICam

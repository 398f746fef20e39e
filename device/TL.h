#pragma once

#include "device/InterfaceInfo.h"
#include "device/ZqObjectBase.h"

#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {

class CInterface;
class INICAdapter;

// The transport layer: one interface object per host interface MAC, kept in step with the host.
class CTL : public CZqObjectBase {
public:
    CTL();
    ~CTL() override;
    CTL(const CTL&) = delete;
    CTL& operator=(const CTL&) = delete;

    virtual void ReleaseChild(CInterface* child);
    virtual void UpdateInterfaceList(unsigned long timeout);
    std::vector<CInterface*>* GetCurInterfaceList();
    // Keeps only the interface entries of these names (kernel name or address label); none: all.
    void SetInterfaceFilter(const std::vector<std::string>& names);
    // A long-running process reads an unchanged camera's access status once, not on every enumeration.
    void SetReuseKnownStatus(bool reuse);
    bool IsReuseKnownStatus() const;

private:
    void __UpdateInterfaceListInfo();
    bool __FindInterfaceInfo(CInterface* itf);
    bool __IsInterfaceCreat(boost::shared_ptr<CInterfaceInfo> info, CInterface** found);
    bool __IsInterfaceInfoListChange(std::vector<boost::shared_ptr<CInterfaceInfo>> list);
    bool __IsInterfaceKnown(const boost::shared_ptr<CInterfaceInfo>& info);

    std::vector<CInterface*> m_vecInterface;
    std::vector<boost::shared_ptr<CInterfaceInfo>> m_vecInterfaceInfo;
    INICAdapter* m_pNICAdapter;
    boost::recursive_mutex m_InfoListMutex;
    boost::recursive_mutex m_InterfaceListMutex;
    std::vector<std::string> m_vecNameFilter;
    bool m_bReuseKnownStatus = false;
};

} // namespace Client
} // namespace GenICam

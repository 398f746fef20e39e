#include "device/TL.h"

#include "common/InstanceFactory.h"
#include "device/Interface.h"
#include "device/NICAdapter.h"

#include <algorithm>

namespace GenICam {
namespace Client {

typedef std::vector<boost::shared_ptr<CInterfaceInfo>> InterfaceInfoList;

CTL::CTL() : m_pNICAdapter(CInstanceFactory::CreateNICAdapterIntstance()) {}

CTL::~CTL()
{
    try {
        for (CInterface* itf : m_vecInterface) {
            delete itf;
        }
        m_vecInterface.clear();
        m_vecInterfaceInfo.clear();
        CInstanceFactory::DestoryNICAdapterIntstance(m_pNICAdapter);
        m_pNICAdapter = nullptr;
    } catch (...) {
    }
}

void CTL::ReleaseChild(CInterface* child)
{
    boost::unique_lock<boost::recursive_mutex> lock(m_InterfaceListMutex);
    auto found = std::find(m_vecInterface.begin(), m_vecInterface.end(), child);
    if (found != m_vecInterface.end()) {
        m_vecInterface.erase(found);
    }
}

// The time-out is part of the interface but bounds nothing: enumeration is a few ioctl calls.
void CTL::UpdateInterfaceList(unsigned long /*timeout*/)
{
    std::vector<NIC_INFO> nics;
    m_pNICAdapter->GetInterfaceList(nics);
    // Filtered here, so discovery, planner and report never learn of the other interfaces.
    if (!m_vecNameFilter.empty()) {
        nics.erase(std::remove_if(nics.begin(), nics.end(),
                                  [this](const NIC_INFO& nic) {
                                      return std::find(m_vecNameFilter.begin(), m_vecNameFilter.end(),
                                                       nic.strDescription) == m_vecNameFilter.end();
                                  }),
                   nics.end());
    }

    InterfaceInfoList snapshots;
    for (const NIC_INFO& nic : nics) {
        snapshots.push_back(boost::shared_ptr<CInterfaceInfo>(new CInterfaceInfo(nic)));
    }
    if (!__IsInterfaceInfoListChange(snapshots)) {
        return;
    }

    boost::unique_lock<boost::recursive_mutex> infoLock(m_InfoListMutex);
    m_vecInterfaceInfo = snapshots;
    boost::unique_lock<boost::recursive_mutex> interfaceLock(m_InterfaceListMutex);
    __UpdateInterfaceListInfo();
}

std::vector<CInterface*>* CTL::GetCurInterfaceList()
{
    return &m_vecInterface;
}

void CTL::SetReuseKnownStatus(bool reuse)
{
    m_bReuseKnownStatus = reuse;
}

bool CTL::IsReuseKnownStatus() const
{
    return m_bReuseKnownStatus;
}

void CTL::SetInterfaceFilter(const std::vector<std::string>& names)
{
    m_vecNameFilter = names;
}

// Interfaces are kept by MAC so their devices and flags survive an address change.
void CTL::__UpdateInterfaceListInfo()
{
    for (auto itf = m_vecInterface.begin(); itf != m_vecInterface.end();) {
        if (__FindInterfaceInfo(*itf)) {
            ++itf;
        } else {
            delete *itf;
            itf = m_vecInterface.erase(itf);
        }
    }

    for (const boost::shared_ptr<CInterfaceInfo>& snapshot : m_vecInterfaceInfo) {
        CInterface* existing = nullptr;
        if (__IsInterfaceCreat(snapshot, &existing)) {
            existing->SetInterfaceInfo(snapshot);
        } else {
            m_vecInterface.push_back(new CInterface(snapshot, this));
        }
    }
}

bool CTL::__FindInterfaceInfo(CInterface* itf)
{
    return std::any_of(m_vecInterfaceInfo.begin(), m_vecInterfaceInfo.end(),
                       [itf](const boost::shared_ptr<CInterfaceInfo>& snapshot) { return itf->IsMyInfo(snapshot); });
}

bool CTL::__IsInterfaceCreat(boost::shared_ptr<CInterfaceInfo> info, CInterface** found)
{
    for (CInterface* itf : m_vecInterface) {
        if (itf->IsMyInfo(info)) {
            *found = itf;
            return true;
        }
    }
    return false;
}

bool CTL::__IsInterfaceInfoListChange(InterfaceInfoList list)
{
    if (list.size() != m_vecInterfaceInfo.size()) {
        return true;
    }
    return !std::all_of(list.begin(), list.end(),
                        [this](const boost::shared_ptr<CInterfaceInfo>& snapshot) { return __IsInterfaceKnown(snapshot); });
}

bool CTL::__IsInterfaceKnown(const boost::shared_ptr<CInterfaceInfo>& info)
{
    return std::any_of(m_vecInterfaceInfo.begin(), m_vecInterfaceInfo.end(),
                       [&info](const boost::shared_ptr<CInterfaceInfo>& known) { return *info == *known; });
}

} // namespace Client
} // namespace GenICam

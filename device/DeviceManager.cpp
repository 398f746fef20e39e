#include "device/DeviceManager.h"

#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "common/Helper.h"
#include "common/TLIError.h"
#include "device/Device.h"
#include "device/Interface.h"
#include "device/TL.h"
#include "common/Identity.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <new>
#include <pthread.h>
#include <unistd.h>
#include <unordered_set>

namespace GenICam {
namespace Client {

namespace {

// Threads are started this far apart so the interfaces' discovery broadcasts do not coincide.
const useconds_t THREAD_START_GAP_US = 1000;

// Runs one public int operation: exceptions become the thread's last error and the returned code.
template <typename Body>
int RunAtErrorBoundary(const char* function, Body body)
{
    try {
        try {
            body();
            return GC_ERR_SUCCESS;
        } catch (CAppException& e) {
            CTLIError::GetInstance()->SetErrTxt(e.GetErrorCode(), e.what());
            return e.GetErrorCode();
        } catch (std::exception& e) {
            CAppException wrapped(function, __LINE__, GC_ERR_ERROR, e.what());
            CTLIError::GetInstance()->SetErrTxt(GC_ERR_ERROR, wrapped.what());
        } catch (...) {
            CAppException wrapped(function, __LINE__, GC_ERR_ERROR, "Unexpect Error");
            CTLIError::GetInstance()->SetErrTxt(GC_ERR_ERROR, wrapped.what());
        }
    } catch (...) {
    }
    return GC_ERR_ERROR;
}

// Clears the update flag however the update ends.
struct UpdateFlagScope {
    explicit UpdateFlagScope(bool& flag) : m_flag(flag) { m_flag = true; }
    ~UpdateFlagScope() { m_flag = false; }
    bool& m_flag;
};

void JoinAll(const std::vector<pthread_t>& threads)
{
    for (pthread_t thread : threads) {
        pthread_join(thread, nullptr);
    }
}

// Flags each object together with the first later one that has its address; a third sharer is
// flagged when its own turn comes.
template <typename Object, typename Compare, typename Address>
void FlagSharedAddresses(const std::vector<Object*>& objects, Compare compare, Address address)
{
    for (auto object = objects.begin(); object != objects.end(); ++object) {
        auto same = std::find_if(object + 1, objects.end(), std::bind(compare, std::placeholders::_1, address(*object)));
        if (same != objects.end()) {
            (*same)->SetSameIPFlag(true);
            (*object)->SetSameIPFlag(true);
        }
    }
}

} // namespace

bool CCmpareSameDevice::operator()(CDevice* a, CDevice* b) const
{
    return a->IsMe(b->GetDevID());
}

bool CCmpareDeviceIP::operator()(CDevice* device, unsigned int ip) const
{
    return device->GetIntIP() == ip;
}

bool CCmpareInterfaceIP::operator()(CInterface* itf, unsigned int ip) const
{
    return itf->GetInterfaceIP() == ip;
}

CDeviceManager* CDeviceManager::m_pTLManager = nullptr;
bool CDeviceManager::ms_bUpdateFlag = false;

CDeviceManager::CDeviceManager() : m_pTL(nullptr), m_bCheckResult(false) {}

CDeviceManager::~CDeviceManager() = default;

CDeviceManager* CDeviceManager::GetInstanse()
{
    if (m_pTLManager == nullptr) {
        try {
            m_pTLManager = new CDeviceManager();
        } catch (...) {
            return nullptr;
        }
    }
    return m_pTLManager;
}

void CDeviceManager::ReleaseInstance()
{
    delete m_pTLManager;
    m_pTLManager = nullptr;
}

int CDeviceManager::InitEnvironment()
{
    return RunAtErrorBoundary("InitEnvironment", [this] {
        m_pTL = new (std::nothrow) CTL();
        if (m_pTL == nullptr) {
            APP_THROW_AS("InitEnvironment", GC_ERR_ERROR, "Unexpected error");
        }
    });
}

int CDeviceManager::UnInitEnvironment()
{
    return RunAtErrorBoundary("UnInitEnvironment", [this] {
        if (m_pTL != nullptr) {
            delete m_pTL;
            m_pTL = nullptr;
        }
    });
}

int CDeviceManager::UpdateDeviceList(unsigned long timeout)
{
    return __UpdateDeviceLists(timeout, nullptr);
}

int CDeviceManager::UpdateDeviceListOn(unsigned long timeout, const std::vector<std::string>& links)
{
    return __UpdateDeviceLists(timeout, &links);
}

int CDeviceManager::__UpdateDeviceLists(unsigned long timeout, const std::vector<std::string>* links)
{
    return RunAtErrorBoundary("UpdateDeviceList", [this, timeout, links] {
        UpdateFlagScope updating(ms_bUpdateFlag);
        m_pTL->UpdateInterfaceList(timeout);
        std::vector<CInterface*> interfaces = *m_pTL->GetCurInterfaceList();
        if (links != nullptr) {
            interfaces.erase(std::remove_if(interfaces.begin(), interfaces.end(), [links](CInterface* itf) {
                const std::string label = itf->GetInterfaceDescription();
                return std::find(links->begin(), links->end(), DeviceNameOf(label)) == links->end();
            }), interfaces.end());
        }
        if (interfaces.empty()) {
            return;
        }
        std::vector<pthread_t> threads;
        try {
            for (CInterface* itf : interfaces) {
                usleep(THREAD_START_GAP_US);
                itf->StartUpdateThread();
                threads.push_back(itf->GetThreadHandle());
                itf->ClearThreadHandle();
            }
        } catch (...) {
            // Threads already running still use the interfaces; wait for them before unwinding.
            JoinAll(threads);
            throw;
        }
        JoinAll(threads);
        __DeleteRepeatDevices();
        __SetSameInterfaceFlag();
        __SetSameDeviceFlag();
    });
}

CTL* CDeviceManager::GetTLObject()
{
    return m_pTL;
}

bool CDeviceManager::GetDevObjByID(std::string id, const CDevice** device)
{
    CDevice* found = nullptr;
    if (!GetDevObjByID(id, &found)) {
        return false;
    }
    *device = found;
    return true;
}

bool CDeviceManager::GetDevObjByID(std::string id, CDevice** device)
{
    const std::vector<CInterface*> interfaces = *m_pTL->GetCurInterfaceList();
    return std::any_of(interfaces.begin(), interfaces.end(),
                       [&id, device](CInterface* itf) { return itf->GetDevObjByID(id, device); });
}

void CDeviceManager::GetAllDevice(std::vector<CDevice*>* devices)
{
    devices->clear();
    __GetAllDevice(*devices);
}

bool CDeviceManager::IsExitSameIP(char* ip)
{
    const std::vector<CInterface*> interfaces = *m_pTL->GetCurInterfaceList();
    return std::any_of(interfaces.begin(), interfaces.end(), [ip](CInterface* itf) { return itf->IsExitSameIP(ip); });
}

bool CDeviceManager::CheckDeviceFromList(std::vector<std::string> ids)
{
    std::vector<CDevice*> devices;
    __GetAllDevice(devices);
    std::vector<std::string> present;
    for (CDevice* device : devices) {
        present.push_back(device->GetDevID());
    }
    m_bCheckResult = __IsSubset(ids, present);
    return m_bCheckResult;
}

bool CDeviceManager::GetCheckResult()
{
    return m_bCheckResult;
}

std::string CDeviceManager::GetLastErrorDescription()
{
    int code = GC_ERR_SUCCESS;
    char text[256] = {0};
    size_t size = sizeof(text);
    CTLIError::GetInstance()->GetErrTxt(&code, text, &size);
    return Helper::MsgComposer("{%d}{%s}", code, text);
}

// A camera answering on several interfaces is kept where it was met first.
void CDeviceManager::__DeleteRepeatDevices()
{
    std::vector<CDevice*> work;
    __GetAllDevice(work);
    std::unordered_set<std::string> met;  // one lookup per device: a steady pass may hold 1000 of them
    for (CDevice* device : work) {
        if (!met.insert(device->GetDevID()).second) {
            device->ReleaseMeFromList();
            delete device;
        }
    }
}

void CDeviceManager::__SetSameInterfaceFlag()
{
    const std::vector<CInterface*> interfaces = *m_pTL->GetCurInterfaceList();
    for (CInterface* itf : interfaces) {
        itf->SetSameIPFlag(false);
    }
    FlagSharedAddresses(interfaces, CCmpareInterfaceIP(), [](CInterface* itf) { return itf->GetInterfaceIP(); });
}

void CDeviceManager::__SetSameDeviceFlag()
{
    std::vector<CDevice*> devices;
    __GetAllDevice(devices);
    FlagSharedAddresses(devices, CCmpareDeviceIP(), [](CDevice* device) { return device->GetIntIP(); });
}

void CDeviceManager::__GetAllDevice(std::vector<CDevice*>& devices)
{
    const std::vector<CInterface*> interfaces = *m_pTL->GetCurInterfaceList();
    for (CInterface* itf : interfaces) {
        const std::vector<CDevice*> own = *itf->GetDeviceList();
        for (CDevice* device : own) {
            devices.push_back(device);
            device->SetSameIPFlag(false);
        }
    }
}

bool CDeviceManager::__IsSubset(std::vector<std::string>& wanted, std::vector<std::string>& present)
{
    if (wanted.size() > present.size()) {
        return false;
    }
    return std::all_of(wanted.begin(), wanted.end(), [&present](const std::string& id) {
        return std::find(present.begin(), present.end(), id) != present.end();
    });
}

} // namespace Client
} // namespace GenICam

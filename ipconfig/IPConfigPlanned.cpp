#include "ipconfig/IPConfigPlanned.h"

#include "common/Diagnostics.h"
#include "common/Exception.h"
#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/Interface.h"

#include <algorithm>

using GenICam::Client::CAppException;
using GenICam::Client::CDevice;
using GenICam::Client::CInterface;
using GenICam::Client::Helper::Diag;

namespace {

bool Has(const std::vector<unsigned int>& list, unsigned int ip)
{
    return std::find(list.begin(), list.end(), ip) != list.end();
}

const REMEMBERED_ADDRESS* FindRemembered(const std::vector<REMEMBERED_ADDRESS>& remembered, const std::string& mac,
                                         const std::string& itf)
{
    for (const REMEMBERED_ADDRESS& entry : remembered) {
        if (entry.strMAC == mac && entry.strInterface == itf) {
            return &entry;
        }
    }
    return nullptr;
}

} // namespace

CPoolWalk::CPoolWalk(std::vector<ADDRESS_RANGE> pool, std::vector<unsigned int> deferred,
                     std::function<bool(unsigned int)> skip)
    : pool(std::move(pool)), deferred(std::move(deferred)), skip(std::move(skip))
{
    next = this->pool.empty() ? 0 : this->pool.front().nFirst;
}

std::vector<unsigned int> CPoolWalk::Next(size_t count)
{
    std::vector<unsigned int> round;
    while (round.size() < count && range < pool.size()) {
        if (next > pool[range].nLast) {
            if (++range < pool.size()) {
                next = pool[range].nFirst;
            }
            continue;
        }
        const unsigned int ip = static_cast<unsigned int>(next++);
        if (!skip(ip) && !Has(deferred, ip)) {
            round.push_back(ip);
        }
    }
    while (round.size() < count && deferredAt < deferred.size()) {
        const unsigned int ip = deferred[deferredAt++];
        if (!skip(ip)) {
            round.push_back(ip);
        }
    }
    return round;
}

CIPConfigPlanned::CIPConfigPlanned(CInterface* itf, CConfigPass* pass) : CIPConfigNetCardIPValid(itf, pass) {}

// Pool cameras are sent before reserved ones, so a camera moved off a reserved address frees it first.
bool CIPConfigPlanned::PlanAddresses()
{
    m_vecPlannedIP.clear();
    if (!GetNetCardIPConfig()) {
        return false;
    }
    PROBE_LINK link;
    if (!__ReadProbeLink(&link)) {
        return false;
    }
    name = link.strName;
    const ADDRESS_PLAN* plan = m_pPass->GetOptions().pPlan.get();
    const INTERFACE_PLAN* itfPlan = plan != nullptr ? plan->FindInterface(name) : nullptr;
    unsigned int first = 0;
    unsigned int last = 0;
    __GetCandidateRange(m_nNetCardIP, m_nNetCardMask, &first, &last);
    pool = itfPlan != nullptr && itfPlan->bHasPool ? itfPlan->vecPool : std::vector<ADDRESS_RANGE>{{first, last}};
    exclude = itfPlan != nullptr ? itfPlan->vecExclude : std::vector<ADDRESS_RANGE>();

    std::vector<CDevice*> poolDevices;
    std::vector<RESERVED_MOVE> reservedMoves;
    for (CDevice* device : m_vecDevice) {
        const std::string mac = device->GetStrMac();
        const RESERVATION* reservation = plan != nullptr ? plan->FindReservation(device->GetSN(), mac) : nullptr;
        const bool may = m_pPass->MaySelect(mac);
        if (reservation != nullptr && may) {
            const bool there = device->GetIntIP() == reservation->nIP && device->GetIntSubNetMask() == m_nNetCardMask;
            if (!there || __NeedsNewIP(device)) {
                reservedMoves.push_back(RESERVED_MOVE{device, reservation->nIP});
            }
            continue;
        }
        const bool needs = __NeedsNewIP(device);
        const bool squatter = !needs && plan != nullptr && plan->FindReservedAddress(device->GetIntIP()) != nullptr;
        if ((needs || squatter) && may) {
            poolDevices.push_back(device);
            Diag("%s: camera %s: selected: %s", name.c_str(), mac.c_str(),
                 squatter ? "its address is reserved for another camera" : "it needs an address from the pool");
        }
    }

    std::unique_ptr<IAddressProber> prober = _CreateProber(link);
    std::vector<unsigned int> poolList;
    const bool poolOk = PlanPool(poolDevices, *prober, &poolList);
    if (poolOk) {
        m_vecConfigDevice = poolDevices;
        m_vecPlannedIP = poolList;
        for (CDevice* device : poolDevices) {
            leaving.push_back(device->GetIntIP());
        }
    } else {
        RecordNoAddress(poolDevices);
    }
    PlanReserved(reservedMoves, *prober);
    RecordIPAssignedToDev(m_vecPlannedIP);
    return poolOk;
}

// Remembered addresses first, then the pool in order; all or nothing, as without a plan.
bool CIPConfigPlanned::PlanPool(const std::vector<CDevice*>& devices, IAddressProber& prober,
                                std::vector<unsigned int>* list)
{
    if (devices.empty()) {
        return true;
    }
    const std::vector<REMEMBERED_ADDRESS>& remembered = m_pPass->GetOptions().vecRemembered;
    std::vector<unsigned int> wished(devices.size(), 0);
    std::vector<unsigned int> round;
    for (size_t i = 0; i < devices.size(); ++i) {
        const REMEMBERED_ADDRESS* entry = FindRemembered(remembered, devices[i]->GetStrMac(), name);
        if (entry != nullptr && InRanges(pool, entry->nIP) && !Skipped(entry->nIP) && !Has(round, entry->nIP)) {
            wished[i] = entry->nIP;
            round.push_back(entry->nIP);
        }
    }
    std::vector<unsigned int> given(devices.size(), 0);
    if (!round.empty()) {
        const std::vector<ARP_PROBE_RESULT> verdicts = prober.Probe(round);
        for (size_t i = 0; i < devices.size(); ++i) {
            const auto at = std::find(round.begin(), round.end(), wished[i]);
            if (wished[i] != 0 && verdicts[at - round.begin()].nKind == ARP_PROBE_FREE) {
                given[i] = wished[i];
                chosen.push_back(wished[i]);
            }
        }
    }
    std::vector<unsigned int> absent;
    const std::vector<SEEN_CAMERA>& seen = m_pPass->GetSeen().vecCamera;
    for (const REMEMBERED_ADDRESS& entry : remembered) {
        const bool present = std::any_of(seen.begin(), seen.end(),
                                         [&](const SEEN_CAMERA& camera) { return camera.stId.strText == entry.strMAC; });
        if (!present) {
            absent.push_back(entry.nIP);
        }
    }
    CPoolWalk walk(pool, absent, [this](unsigned int ip) { return Skipped(ip); });
    std::vector<unsigned int> found;
    const size_t wanted = static_cast<size_t>(std::count(given.begin(), given.end(), 0u));
    while (found.size() < wanted) {
        const std::vector<unsigned int> candidates = walk.Next(wanted - found.size());
        if (candidates.empty()) {
            Diag("%s: too few free addresses in the pool: %zu of %zu found", name.c_str(), found.size(), wanted);
            chosen.clear();
            return false;
        }
        const std::vector<ARP_PROBE_RESULT> verdicts = prober.Probe(candidates);
        for (size_t i = 0; i < candidates.size(); ++i) {
            if (verdicts[i].nKind == ARP_PROBE_FAILED) {
                chosen.clear();
                return false;
            }
            if (verdicts[i].nKind == ARP_PROBE_FREE) {
                found.push_back(candidates[i]);
            }
        }
    }
    size_t next = 0;
    for (unsigned int& ip : given) {
        if (ip == 0) {
            ip = found[next++];
            chosen.push_back(ip);
        }
    }
    *list = given;
    return true;
}

// A reserved camera is moved only to an address of this subnet that nobody keeps.
void CIPConfigPlanned::PlanReserved(const std::vector<RESERVED_MOVE>& moves, IAddressProber& prober)
{
    const unsigned int net = m_nNetCardIP & m_nNetCardMask;
    const unsigned int broadcast = net | ~m_nNetCardMask;
    std::vector<RESERVED_MOVE> probed;
    std::vector<unsigned int> round;
    for (const RESERVED_MOVE& move : moves) {
        const std::string address = DottedText(move.nIP);
        if ((move.nIP & m_nNetCardMask) != net || move.nIP == net || move.nIP == broadcast) {
            KeepWithNote(move.pDevice, "reserved address " + address + " is not in " + name + "'s subnet");
            continue;
        }
        const bool held = (__IsRecorded(move.nIP) && !Has(leaving, move.nIP)) || Has(chosen, move.nIP);
        if (held) {
            KeepWithNote(move.pDevice,
                         "reserved address " + address + " is taken by " + HolderOf(move.nIP, move.pDevice->GetStrMac()));
            continue;
        }
        probed.push_back(move);
        round.push_back(move.nIP);
    }
    const std::vector<ARP_PROBE_RESULT> verdicts = round.empty() ? std::vector<ARP_PROBE_RESULT>() : prober.Probe(round);
    for (size_t i = 0; i < probed.size(); ++i) {
        if (verdicts[i].nKind != ARP_PROBE_FREE) {
            KeepWithNote(probed[i].pDevice, "reserved address " + DottedText(probed[i].nIP) + " is taken by " +
                                                HolderOf(probed[i].nIP, probed[i].pDevice->GetStrMac()));
            continue;
        }
        Diag("%s: camera %s: selected: reserved %s", name.c_str(), probed[i].pDevice->GetStrMac().c_str(),
             DottedText(probed[i].nIP).c_str());
        m_vecConfigDevice.push_back(probed[i].pDevice);
        m_vecPlannedIP.push_back(probed[i].nIP);
        notes[probed[i].pDevice] = "reserved";
    }
}

void CIPConfigPlanned::KeepWithNote(CDevice* device, const std::string& note)
{
    Diag("%s: camera %s: not moved: %s", name.c_str(), device->GetStrMac().c_str(), note.c_str());
    CAMERA_OUTCOME outcome;
    outcome.strDevID = device->GetDevID();
    outcome.nOldIP = device->GetIntIP();
    outcome.strPlanNote = note;
    m_pPass->RecordOutcome(outcome);
}

// Reserved and excluded addresses, the subnet's ends and whatever this pass knows to be taken.
bool CIPConfigPlanned::Skipped(unsigned int ip)
{
    const unsigned int net = m_nNetCardIP & m_nNetCardMask;
    const ADDRESS_PLAN* plan = m_pPass->GetOptions().pPlan.get();
    return (ip & m_nNetCardMask) != net || ip == net || ip == (net | ~m_nNetCardMask) || InRanges(exclude, ip) ||
           (plan != nullptr && plan->FindReservedAddress(ip) != nullptr) || Has(chosen, ip) ||
           __IsRecorded(ip);
}

// Another camera or an interface of this run that has the address, else the host that answered.
std::string CIPConfigPlanned::HolderOf(unsigned int ip, const std::string& self) const
{
    const SEEN_MODEL& seen = m_pPass->GetSeen();
    for (const SEEN_CAMERA& camera : seen.vecCamera) {
        if (camera.nIP == ip && camera.stId.strText != self) {
            return camera.stId.strText;
        }
    }
    for (const SEEN_INTERFACE& itf : seen.vecInterface) {
        if (itf.nIP == ip) {
            return itf.strMAC;
        }
    }
    return "a host that answers for it";
}

std::string CIPConfigPlanned::_PlanNote(CDevice* device) const
{
    const auto note = notes.find(device);
    return note == notes.end() ? std::string() : note->second;
}

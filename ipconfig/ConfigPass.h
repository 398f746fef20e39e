#pragma once

#include "common/Identity.h"
#include "gvcp/GvcpResult.h"
#include "ipconfig/AddressPlan.h"
#include "ipconfig/RememberedAddress.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {
class CInterface;
} // namespace Client
} // namespace GenICam

// What the command line asks of a pass; the defaults are the plain run.
struct PASS_OPTIONS {
    bool bDryRun = false;          // plan and record, send nothing
    bool bStandard = false;        // standard FORCEIP and persistent store in place of 0x9000
    bool bCheckConflicts = false;  // RFC 5227 probes, every interface at once
    std::vector<std::string> vecInterface;  // only these interfaces take part; none: all
    // The long-running mode works on some cameras only (MAC texts); the others keep their addresses.
    bool bOnlyListed = false;
    std::vector<std::string> vecOnlyMAC;
    // Addresses taken besides those the pass sees: cameras of earlier passes that did not answer now.
    std::vector<unsigned int> vecAlsoTaken;
    std::shared_ptr<const ADDRESS_PLAN> pPlan;  // null: no configuration file, the default planner
    std::vector<REMEMBERED_ADDRESS> vecRemembered;
};

// An interface as one look at the device model found it.
struct SEEN_INTERFACE {
    GenICam::Client::INTERFACE_ID stId;  // its label is the interface's name in every report
    std::string strMAC;
    std::string strIP;
    std::string strMask;
    unsigned int nIP = 0;
    unsigned int nMask = 0;
    std::string strDisplayName;  // "name(kernel's description)", as the text report shows it
};

// A camera as one look at the device model found it.
struct SEEN_CAMERA {
    std::string strInterface;  // its interface's label
    std::string strDevID;      // "model(MAC)"
    std::string strModel;
    std::string strSerial;
    GenICam::Client::CAMERA_ID stId;
    unsigned int nIP = 0;
    unsigned int nMask = 0;
    bool bAvailable = false;   // in its interface's subnet, with its mask
};

struct SEEN_MODEL {
    std::vector<SEEN_INTERFACE> vecInterface;
    std::vector<SEEN_CAMERA> vecCamera;
};

// What became of one camera in a pass.
enum CAMERA_ACTION {
    CAMERA_KEPT = 0,    // not selected, or behind an interface the planner does not use
    CAMERA_PLANNED,     // dry run: would get nNewIP
    CAMERA_SENT,        // the force-IP went out; Settle() decides between moved, failed and lost
    CAMERA_MOVED,       // answers at nNewIP
    CAMERA_FAILED,      // the force-IP failed (stForceIP), or the camera answers elsewhere
    CAMERA_LOST,        // seen at the first discovery, not at the end
    CAMERA_NO_ADDRESS,  // its interface had too few free addresses: nothing sent
};

// Why a kept or failed camera is where it is, when the force-IP's result does not say.
enum CAMERA_NOTE {
    CAMERA_NOTE_NONE = 0,
    CAMERA_NOTE_INTERFACE_NO_ADDRESS,
    CAMERA_NOTE_INTERFACE_LINK_LOCAL,
    CAMERA_NOTE_INTERFACE_UNREADABLE,
    CAMERA_NOTE_NOT_SEEN_BEFORE,
    CAMERA_NOTE_CHANGED_ADDRESS,
    CAMERA_NOTE_NOT_AT_NEW_ADDRESS,  // acknowledged, yet it answers elsewhere
};

struct CAMERA_OUTCOME {
    std::string strDevID;
    CAMERA_ACTION nAction = CAMERA_KEPT;
    CAMERA_NOTE nNote = CAMERA_NOTE_NONE;
    unsigned int nOldIP = 0;  // where the planner found it
    unsigned int nNewIP = 0;  // the address it was given (or would be); 0 when none
    GenICam::Client::FORCEIP_OUTCOME stForceIP;
    std::string strPlanNote;  // the address plan's reason: reserved, or why a reservation was not applied

    bool IsPersistent() const { return stForceIP.stStore.IsOk(); }
};

// One camera of the report: as the end of the pass sees it, or as it was last seen when it is gone.
struct CAMERA_REPORT {
    SEEN_CAMERA stCamera;
    CAMERA_OUTCOME stOutcome;
    bool bGone = false;
};

struct INTERFACE_REPORT {
    SEEN_INTERFACE stInterface;
    bool bGone = false;  // no longer in the device model: its cameras come from the pass's record
    std::vector<CAMERA_REPORT> vecCamera;  // ordered by MAC text
};

// One pass: discover, plan, send, confirm, report. Fields:
//   m_stOptions   what was asked (dry run, standard, check conflicts, interface filter)
//   m_stSeen      every interface and camera seen from the first discovery on (first sighting kept)
//   m_vecOutcome  one outcome per camera the planner selected: planned, sent, failed or no address
//   m_mapUsedBy   who holds each address the planner recorded as taken (diagnostics)
//   m_vecReport   after Settle(): every interface and camera with its final outcome
// The planner's taken-address lists stay statics of CIPConfigAllDevices, cleared per pass.
class CConfigPass {
public:
    explicit CConfigPass(const PASS_OPTIONS& options);
    CConfigPass(const CConfigPass&) = delete;
    CConfigPass& operator=(const CConfigPass&) = delete;

    const PASS_OPTIONS& GetOptions() const;
    // Whether the planner may give this camera (MAC text) a new address.
    bool MaySelect(const std::string& mac) const;

    // Adds what is new in `model`; the first sighting of an interface or camera stays.
    void RecordSeen(const SEEN_MODEL& model);
    const SEEN_MODEL& GetSeen() const { return m_stSeen; }

    // Safe from overlapping candidate searches.
    void RecordOutcome(const CAMERA_OUTCOME& outcome);
    const CAMERA_OUTCOME* FindOutcome(const std::string& devID) const;
    const std::vector<CAMERA_OUTCOME>& GetOutcomes() const;

    // Serialises every touch of the taken-address lists while searches overlap.
    std::unique_lock<std::mutex> LockUsed();
    // Caller holds LockUsed(); the first holder named stays.
    void NoteHolder(unsigned int ip, const std::string& who);
    std::string GetHolder(unsigned int ip) const;

    // Judges every camera against the end of the pass (`now`), adds the lost ones from the record.
    const std::vector<INTERFACE_REPORT>& Settle(const SEEN_MODEL& now);
    const std::vector<INTERFACE_REPORT>& GetReport() const;

private:
    CAMERA_REPORT Judge(const SEEN_CAMERA& camera, const SEEN_INTERFACE& itf) const;
    CAMERA_REPORT JudgeGone(const SEEN_CAMERA& camera) const;
    const SEEN_CAMERA* FindSeen(const std::string& devID) const;

    PASS_OPTIONS m_stOptions;
    SEEN_MODEL m_stSeen;
    std::vector<CAMERA_OUTCOME> m_vecOutcome;
    std::map<unsigned int, std::string> m_mapUsedBy;
    std::vector<INTERFACE_REPORT> m_vecReport;
    std::mutex m_UsedLock;
    std::mutex m_OutcomeLock;
};

// The report's word for an action: kept, planned, moved, failed, lost.
const char* ActionText(CAMERA_ACTION action);
// Why the camera is not where the planner meant it to be, or not reachable; empty when nothing is amiss.
std::string ReasonText(const CAMERA_OUTCOME& outcome);

// The interfaces and their cameras as the device model holds them now.
SEEN_MODEL SeeInterfaces(const std::vector<GenICam::Client::CInterface*>& interfaces);

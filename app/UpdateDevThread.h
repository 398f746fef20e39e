#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace GenICam {
namespace Client {
class CDeviceManager;
} // namespace Client
} // namespace GenICam

// The timing of every pass's discovery and confirmation: moved cameras have 25 s to answer again.
constexpr unsigned long kDiscoveryTimeoutMs = 3000;
constexpr uint64_t kConfirmLimitMs = 25000;
constexpr uint64_t kConfirmPauseMs = 500;

// Modes of CUpdateDevThread; any mode other than once repeats.
enum UPDATE_DEV_MODE {
    UPDATE_DEV_ONCE = 0,
    UPDATE_DEV_UNTIL_FOUND = 1,
};

// Enumerates the devices once (UPDATE_DEV_ONCE), or until every listed device answers again (any
// other mode), on every interface or on the links set. Starts no thread: the caller decides where run() executes. Deleted by its own type only.
class CUpdateDevThread final {
public:
    CUpdateDevThread(GenICam::Client::CDeviceManager* manager, int mode, const std::vector<std::string>& devIDs);
    ~CUpdateDevThread();
    CUpdateDevThread(const CUpdateDevThread&) = delete;
    CUpdateDevThread& operator=(const CUpdateDevThread&) = delete;

    virtual void run();
    bool IsUpdateSuccessful();
    const std::string& GetLastError() const;
    // Only these kernel links are enumerated; none: every interface.
    void SetLinks(const std::vector<std::string>& links);
    // Replaces "every listed device answers" as the end of the repeated mode.
    void SetAnswered(std::function<bool()> answered);
    // The repeated mode pauses before each enumeration instead of after it: the cameras were just sent
    // their addresses, and a pass that gave up ends at once.
    void PauseBefore(bool pause);
    // The dots and the line end of the repeated mode; on unless turned off.
    void ShowProgress(bool show);
    // "eth0: camera 00-0F-31-AA-00-02" and the address it was sent (0: not moved) for each device ID, in
    // the same order: names the confirmation's diagnostics, also for a camera that is gone.
    void SetDevLabels(const std::vector<std::string>& labels, const std::vector<unsigned int>& sentIPs);

private:
    void __SetUpdateDevStatus(bool success);
    void __RunOnce();
    void __RunUntilFound();
    void __Enumerate();
    void __EndLine();
    void __Print(const char* text);
    void __DiagPass(int pass);

    GenICam::Client::CDeviceManager* m_pDeviceManager;
    int m_nMode;
    bool m_bUpdateSuccess;
    std::string m_strError;
    int m_nRunning;
    std::vector<std::string> m_vecDevID;
    bool m_bShowProgress;
    std::vector<std::string> m_vecDevLabel;
    std::vector<unsigned int> m_vecSentIP;
    bool m_bDiagPasses = false;
    std::vector<std::string> m_vecLinks;
    std::function<bool()> m_fnAnswered;
    bool m_bPauseBefore = false;
};

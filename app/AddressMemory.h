#pragma once

#include "ipconfig/RememberedAddress.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// One camera the watch moved, as its state file keeps it.
struct REMEMBERED_CAMERA {
    std::string strMAC;        // report spelling
    std::string strSerial;
    std::string strInterface;  // the report's interface name
    unsigned int nIP = 0;      // host order
    std::string strWhen;       // wall-clock time of the move (RFC 3339), for people reading the file
};

// The state file's text, least recently moved first; false with a one-line `error` when it is not one.
bool ParseAddressMemory(const std::string& text, std::vector<REMEMBERED_CAMERA>* cameras, std::string* error);
std::string SerializeAddressMemory(const std::vector<REMEMBERED_CAMERA>& cameras);

// The state directory: the first of $STATE_DIRECTORY's paths (null or empty: /var/lib/autoipconfig).
std::string AddressMemoryDirectory(const char* stateDirectory);

// The addresses the watch moved cameras to, kept across restarts. Failures of the file are told on
// stderr once and never stop the caller; whether to save at all (a dry run does not) is the caller's.
class CAddressMemory {
public:
    static constexpr size_t kCapacity = 4096;

    explicit CAddressMemory(const std::string& directory);

    // Reads the file once; a corrupt one is told and replaced by the next Save.
    void Load();
    // The camera was moved to `ip`: it becomes the most recently moved and the only one remembered there.
    void Record(const std::string& mac, const std::string& serial, const std::string& itf, unsigned int ip,
                uint64_t wallMs);
    // Writes the file when something changed since it was read or written; false when that failed.
    bool Save();

    std::vector<REMEMBERED_ADDRESS> Addresses() const;
    const std::vector<REMEMBERED_CAMERA>& Cameras() const { return m_cameras; }
    std::string FilePath() const;

private:
    // One line on stderr; with `told`, only the first time.
    void report(const std::string& what, bool* told);

    std::string m_directory;
    std::vector<REMEMBERED_CAMERA> m_cameras;  // least recently moved first
    bool m_changed = false;
    bool m_toldDirectory = false;
    bool m_toldWrite = false;
};

#include "app/AddressMemory.h"

#include "app/WatchEvents.h"
#include "common/AtomicFile.h"
#include "common/ipcalc.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

using Json = nlohmann::ordered_json;

namespace {

const char* const kFileName = "addresses.json";

// Only the report spelling the file is written in; the result is upper case.
bool ParseMac(const std::string& text, std::string* mac)
{
    if (text.size() != 17) {
        return false;
    }
    unsigned char bytes[6] = {0};
    for (size_t i = 0; i < 17; ++i) {
        const char c = text[i];
        if (i % 3 == 2) {
            if (c != '-') {
                return false;
            }
            continue;
        }
        if (!isxdigit(static_cast<unsigned char>(c))) {
            return false;
        }
        const int nibble = isdigit(static_cast<unsigned char>(c)) ? c - '0' : tolower(c) - 'a' + 10;
        bytes[i / 3] = static_cast<unsigned char>(bytes[i / 3] << 4 | nibble);
    }
    *mac = MacText(bytes);
    return true;
}

bool ParseAddress(const std::string& text, unsigned int* ip)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return false;
    }
    *ip = ntohl(address.s_addr);
    return true;
}

// A camera is remembered at one address, and an address for one camera: the latest move wins.
void Remember(std::vector<REMEMBERED_CAMERA>* cameras, REMEMBERED_CAMERA camera)
{
    cameras->erase(std::remove_if(cameras->begin(), cameras->end(),
                                  [&camera](const REMEMBERED_CAMERA& old) {
                                      return old.strMAC == camera.strMAC ||
                                             (old.nIP == camera.nIP && old.strInterface == camera.strInterface);
                                  }),
                   cameras->end());
    cameras->push_back(std::move(camera));
    if (cameras->size() > CAddressMemory::kCapacity) {
        cameras->erase(cameras->begin(), cameras->end() - CAddressMemory::kCapacity);
    }
}

bool Text(const Json& entry, const char* key, std::string* value)
{
    const auto it = entry.find(key);
    if (it == entry.end() || !it->is_string()) {
        return false;
    }
    *value = it->get<std::string>();
    return true;
}

// One entry of "cameras"; the error names what is wrong with it.
bool ParseCamera(const Json& entry, REMEMBERED_CAMERA* camera, std::string* error)
{
    std::string mac;
    std::string address;
    if (!entry.is_object()) {
        *error = "not an object";
    } else if (!Text(entry, "mac", &mac) || !ParseMac(mac, &camera->strMAC)) {
        *error = "no MAC address";
    } else if (!Text(entry, "address", &address) || !ParseAddress(address, &camera->nIP)) {
        *error = "no IPv4 address";
    } else if (!Text(entry, "interface", &camera->strInterface) || camera->strInterface.empty()) {
        *error = "no interface";
    } else if (!Text(entry, "serial", &camera->strSerial) || !Text(entry, "moved", &camera->strWhen)) {
        *error = "no serial or time";
    } else {
        return true;
    }
    return false;
}

} // namespace

bool ParseAddressMemory(const std::string& text, std::vector<REMEMBERED_CAMERA>* cameras, std::string* error)
{
    cameras->clear();
    const Json document = Json::parse(text, nullptr, false);
    const auto list = document.is_object() ? document.find("cameras") : document.end();
    if (document.is_discarded() || !document.is_object() || list == document.end() || !list->is_array()) {
        *error = "not a list of cameras";
        return false;
    }
    for (size_t i = 0; i < list->size(); ++i) {
        REMEMBERED_CAMERA camera;
        std::string what;
        if (!ParseCamera((*list)[i], &camera, &what)) {
            cameras->clear();
            *error = "camera " + std::to_string(i + 1) + ": " + what;
            return false;
        }
        Remember(cameras, std::move(camera));
    }
    return true;
}

std::string SerializeAddressMemory(const std::vector<REMEMBERED_CAMERA>& cameras)
{
    Json list = Json::array();
    for (const REMEMBERED_CAMERA& camera : cameras) {
        list.push_back({{"mac", camera.strMAC},
                        {"serial", camera.strSerial},
                        {"interface", camera.strInterface},
                        {"address", DottedText(camera.nIP)},
                        {"moved", camera.strWhen}});
    }
    // One camera a line: the file stays readable, and diffable, by people.
    std::string text = "{\"cameras\": [";
    for (size_t i = 0; i < list.size(); ++i) {
        text += (i == 0 ? "\n  " : ",\n  ") + list[i].dump(-1, ' ', false, Json::error_handler_t::replace);
    }
    return text + (list.empty() ? "]}\n" : "\n]}\n");
}

std::string AddressMemoryDirectory(const char* stateDirectory)
{
    const std::string paths = stateDirectory == nullptr ? std::string() : stateDirectory;
    const std::string first = paths.substr(0, paths.find(':'));
    return first.empty() ? "/var/lib/autoipconfig" : first;
}

CAddressMemory::CAddressMemory(const std::string& directory) : m_directory(directory) {}

std::string CAddressMemory::FilePath() const
{
    return m_directory + "/" + kFileName;
}

void CAddressMemory::Load()
{
    std::string text;
    int error = 0;
    if (!GenICam::Client::ReadWholeFile(FilePath(), &text, &error)) {
        if (error != ENOENT) {
            report(std::string("cannot read (") + strerror(error) + "): it will be replaced", nullptr);
            m_changed = true;
        }
        return;
    }
    std::string why;
    if (!ParseAddressMemory(text, &m_cameras, &why)) {
        report("corrupt (" + why + "): it will be replaced", nullptr);
        m_changed = true;
    }
}

void CAddressMemory::Record(const std::string& mac, const std::string& serial, const std::string& itf,
                            unsigned int ip, uint64_t wallMs)
{
    REMEMBERED_CAMERA camera;
    camera.strMAC = mac;
    camera.strSerial = serial;
    camera.strInterface = itf;
    camera.nIP = ip;
    camera.strWhen = UtcMsText(wallMs);
    Remember(&m_cameras, std::move(camera));
    m_changed = true;
}

bool CAddressMemory::Save()
{
    if (!m_changed) {
        return true;
    }
    // Each missing level is made in turn; StateDirectory= normally made the whole path already.
    for (size_t slash = m_directory.find('/', 1);; slash = m_directory.find('/', slash + 1)) {
        const std::string level = m_directory.substr(0, slash);
        if (mkdir(level.c_str(), 0755) != 0 && errno != EEXIST) {
            report(std::string("cannot create its directory: ") + strerror(errno), &m_toldDirectory);
            return false;
        }
        if (slash == std::string::npos) {
            break;
        }
    }
    int error = 0;
    if (!GenICam::Client::WriteFileAtomically(FilePath(), SerializeAddressMemory(m_cameras), 0644, &error)) {
        report(std::string("cannot write: ") + strerror(error), &m_toldWrite);
        return false;
    }
    m_changed = false;
    return true;
}

std::vector<REMEMBERED_ADDRESS> CAddressMemory::Addresses() const
{
    std::vector<REMEMBERED_ADDRESS> addresses;
    addresses.reserve(m_cameras.size());
    for (const REMEMBERED_CAMERA& camera : m_cameras) {
        REMEMBERED_ADDRESS address;
        address.strMAC = camera.strMAC;
        address.strInterface = camera.strInterface;
        address.nIP = camera.nIP;
        addresses.push_back(address);
    }
    return addresses;
}

void CAddressMemory::report(const std::string& what, bool* told)
{
    if (told == nullptr || !*told) {
        fprintf(stderr, "autoipconfig: %s: %s\n", FilePath().c_str(), what.c_str());
    }
    if (told != nullptr) {
        *told = true;
    }
}

#include "ipconfig/AddressPlan.h"

#include "common/AtomicFile.h"
#include "common/ipcalc.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <toml++/toml.h>
#include <tuple>

namespace {

struct FOUND_ERROR {
    unsigned int nLine;
    unsigned int nColumn;
    std::string strMessage;
};

// Collects one file's problems; they are sorted by place before they leave.
class CFileReader {
public:
    CFileReader(const std::string& file, ADDRESS_PLAN* plan) : file(file), plan(plan) {}

    void Read(const toml::table& root)
    {
        for (auto&& [key, node] : root) {
            if (key == "interface" && node.is_table()) {
                ReadInterfaces(*node.as_table());
            } else if (key == "camera" && node.is_array_of_tables()) {
                for (auto&& camera : *node.as_array()) {
                    ReadCamera(*camera.as_table());
                }
            } else if (key == "interface") {
                Error(key.source(), "\"interface\" must be a table of interfaces: [interface.NAME]");
            } else if (key == "camera") {
                Error(key.source(), "\"camera\" must be an array of tables: [[camera]]");
            } else if (node.is_table() || node.is_array_of_tables()) {
                Error(key.source(), "unknown section [" + std::string(key.str()) + "]");
            } else {
                Error(key.source(), "unknown key \"" + std::string(key.str()) + "\"");
            }
        }
    }

    void Error(const toml::source_region& where, const std::string& message)
    {
        errors.push_back(FOUND_ERROR{where.begin.line, where.begin.column, message});
    }

    std::vector<std::string> Errors()
    {
        std::stable_sort(errors.begin(), errors.end(), [](const FOUND_ERROR& a, const FOUND_ERROR& b) {
            return std::tie(a.nLine, a.nColumn) < std::tie(b.nLine, b.nColumn);
        });
        std::vector<std::string> lines;
        for (const FOUND_ERROR& error : errors) {
            lines.push_back(PLAN_PLACE{file, error.nLine, error.nColumn}.Text() + ": " + error.strMessage);
        }
        return lines;
    }

private:
    PLAN_PLACE Place(const toml::source_region& where) const
    {
        return PLAN_PLACE{file, where.begin.line, where.begin.column};
    }

    void ReadInterfaces(const toml::table& interfaces)
    {
        for (auto&& [name, node] : interfaces) {
            const std::string section = "[interface." + std::string(name.str()) + "]";
            if (!node.is_table()) {
                Error(name.source(), section + " must be a table");
                continue;
            }
            INTERFACE_PLAN itf;
            itf.strName = std::string(name.str());
            itf.stPlace = Place(name.source());
            for (auto&& [key, value] : *node.as_table()) {
                if (key == "pool") {
                    itf.bHasPool = ReadRanges(key, value, &itf.vecPool);
                } else if (key == "exclude") {
                    ReadRanges(key, value, &itf.vecExclude);
                } else {
                    Error(key.source(), "unknown key \"" + std::string(key.str()) + "\" in " + section);
                }
            }
            const INTERFACE_PLAN* earlier = plan->FindInterface(itf.strName);
            if (earlier != nullptr) {
                Error(name.source(), section + " is planned twice (first at " + earlier->stPlace.Text() + ")");
            } else {
                plan->vecInterface.push_back(itf);
            }
        }
    }

    bool ReadRanges(const toml::key& key, const toml::node& value, std::vector<ADDRESS_RANGE>* ranges)
    {
        const std::string name(key.str());
        const toml::array* items = value.as_array();
        if (items == nullptr) {
            Error(value.source(), "\"" + name + "\" must be an array of addresses and ranges");
            return false;
        }
        bool ok = true;
        for (auto&& item : *items) {
            const std::optional<std::string> text = item.value_exact<std::string>();
            ADDRESS_RANGE range;
            if (!text) {
                Error(item.source(), "\"" + name + "\" must hold strings such as \"192.168.1.100-192.168.1.149\"");
            } else if (!ParseRange(*text, &range)) {
                Error(item.source(), "\"" + *text + "\" is not an IPv4 address or range");
            } else if (range.nFirst > range.nLast) {
                Error(item.source(), "range \"" + *text + "\" starts above its end");
            } else {
                ranges->push_back(range);
                continue;
            }
            ok = false;
        }
        return ok;
    }

    static bool ParseRange(const std::string& text, ADDRESS_RANGE* range)
    {
        const size_t dash = text.find('-');
        if (dash == std::string::npos) {
            return ParseIPv4(text, &range->nFirst) && ParseIPv4(text, &range->nLast);
        }
        return ParseIPv4(text.substr(0, dash), &range->nFirst) && ParseIPv4(text.substr(dash + 1), &range->nLast);
    }

    // A string value of a [[camera]]; false (with an error) when the key holds another type.
    bool CameraString(const toml::key& key, const toml::node& value, std::string* out)
    {
        const std::optional<std::string> text = value.value_exact<std::string>();
        if (!text) {
            Error(value.source(), "\"" + std::string(key.str()) + "\" in [[camera]] must be a string");
            return false;
        }
        *out = *text;
        return true;
    }

    void ReadCamera(const toml::table& camera)
    {
        RESERVATION reservation;
        reservation.stPlace = Place(camera.source());
        bool ok = true;
        bool hasAddress = false;
        bool hasSerial = false;
        bool hasMAC = false;
        for (auto&& [key, value] : camera) {
            std::string text;
            if (key == "address") {
                hasAddress = true;
                if (CameraString(key, value, &text) && !ParseIPv4(text, &reservation.nIP)) {
                    Error(value.source(), "\"" + text + "\" is not an IPv4 address");
                    ok = false;
                }
                ok = ok && !text.empty();
            } else if (key == "serial") {
                hasSerial = true;
                const bool read = CameraString(key, value, &reservation.strSerial);
                if (read && reservation.strSerial.empty()) {
                    Error(value.source(), "\"serial\" in [[camera]] is empty");
                }
                ok = read && !reservation.strSerial.empty() && ok;
            } else if (key == "mac") {
                hasMAC = true;
                if (CameraString(key, value, &text) && !ParseMAC(text, &reservation.strMAC)) {
                    Error(value.source(), "\"" + text + "\" is not a MAC address");
                    ok = false;
                }
                ok = ok && !text.empty();
            } else {
                Error(key.source(), "unknown key \"" + std::string(key.str()) + "\" in [[camera]]");
                ok = false;
            }
        }
        if (!hasAddress) {
            Error(camera.source(), "[[camera]] has no \"address\"");
        }
        if (hasSerial == hasMAC) {
            Error(camera.source(), hasSerial ? "[[camera]] has both \"serial\" and \"mac\": give one"
                                             : "[[camera]] has neither \"serial\" nor \"mac\"");
        }
        if (!ok || !hasAddress || hasSerial == hasMAC) {
            return;
        }
        const RESERVATION* sameAddress = plan->FindReservedAddress(reservation.nIP);
        const RESERVATION* sameCamera = plan->FindReservation(reservation.strSerial, reservation.strMAC);
        if (sameAddress != nullptr) {
            Error(camera.source(), "address " + DottedText(reservation.nIP) + " is reserved twice (first at " +
                                       sameAddress->stPlace.Text() + ")");
        } else if (sameCamera != nullptr) {
            Error(camera.source(), "camera " + reservation.Who() + " is reserved twice (first at " +
                                       sameCamera->stPlace.Text() + ")");
        } else {
            plan->AddReservation(reservation);
        }
    }

    std::string file;
    ADDRESS_PLAN* plan;
    std::vector<FOUND_ERROR> errors;
};

} // namespace

std::string PLAN_PLACE::Text() const
{
    return strFile + ":" + std::to_string(nLine) + ":" + std::to_string(nColumn);
}

std::string RESERVATION::Who() const
{
    return strSerial.empty() ? strMAC : "\"" + strSerial + "\"";
}

const INTERFACE_PLAN* ADDRESS_PLAN::FindInterface(const std::string& name) const
{
    for (const INTERFACE_PLAN& itf : vecInterface) {
        if (itf.strName == name) {
            return &itf;
        }
    }
    return nullptr;
}

void ADDRESS_PLAN::AddReservation(const RESERVATION& reservation)
{
    const size_t at = vecReservation.size();
    vecReservation.push_back(reservation);
    (reservation.strSerial.empty() ? mapByMAC[reservation.strMAC] : mapBySerial[reservation.strSerial]) = at;
    mapByAddress[reservation.nIP] = at;
}

const RESERVATION* ADDRESS_PLAN::FindReservation(const std::string& serial, const std::string& mac) const
{
    const auto bySerial = mapBySerial.find(serial);
    if (bySerial != mapBySerial.end()) {
        return &vecReservation[bySerial->second];
    }
    std::string upper = mac;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return toupper(c); });
    const auto byMAC = mapByMAC.find(upper);
    return byMAC == mapByMAC.end() ? nullptr : &vecReservation[byMAC->second];
}

const RESERVATION* ADDRESS_PLAN::FindReservedAddress(unsigned int ip) const
{
    const auto byAddress = mapByAddress.find(ip);
    return byAddress == mapByAddress.end() ? nullptr : &vecReservation[byAddress->second];
}

void ReadPlanText(const std::string& file, const std::string& text, ADDRESS_PLAN* plan,
                  std::vector<std::string>* errors)
{
    CFileReader reader(file, plan);
    try {
        const toml::table root = toml::parse(text, file);
        reader.Read(root);
    } catch (const toml::parse_error& error) {
        reader.Error(error.source(), std::string(error.description()));
    }
    const std::vector<std::string> found = reader.Errors();
    errors->insert(errors->end(), found.begin(), found.end());
}

std::vector<std::string> PlanFiles(const std::string& configFile, const std::string& dir)
{
    if (!configFile.empty()) {
        return {configFile};
    }
    std::vector<std::string> files{dir + "/autoipconfig.toml"};
    const std::string confDir = dir + "/conf.d";
    std::vector<std::string> names;
    if (DIR* listing = opendir(confDir.c_str())) {
        while (const dirent* entry = readdir(listing)) {
            const std::string name = entry->d_name;
            if (name.size() > 5 && name[0] != '.' && name.compare(name.size() - 5, 5, ".toml") == 0) {
                names.push_back(name);
            }
        }
        closedir(listing);
    }
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        files.push_back(confDir + "/" + name);
    }
    return files;
}

PLAN_LOAD LoadAddressPlan(const std::string& configFile, const std::string& dir)
{
    PLAN_LOAD load;
    auto plan = std::make_shared<ADDRESS_PLAN>();
    for (const std::string& file : PlanFiles(configFile, dir)) {
        std::string text;
        int error = 0;
        if (!GenICam::Client::ReadWholeFile(file, &text, &error)) {
            if (error != ENOENT || !configFile.empty()) {
                load.vecError.push_back(file + ": cannot read: " + strerror(error));
            }
            continue;
        }
        ReadPlanText(file, text, plan.get(), &load.vecError);
    }
    if (load.vecError.empty() && !plan->IsEmpty()) {
        load.pPlan = plan;
    }
    return load;
}

bool ParseIPv4(const std::string& text, unsigned int* ip)
{
    unsigned int value = 0;
    size_t at = 0;
    for (int group = 0; group < 4; ++group) {
        if (group > 0 && (at >= text.size() || text[at++] != '.')) {
            return false;
        }
        const size_t start = at;
        unsigned int part = 0;
        while (at < text.size() && at - start < 4 && text[at] >= '0' && text[at] <= '9') {
            part = part * 10 + static_cast<unsigned int>(text[at++] - '0');
        }
        if (at == start || at - start > 3 || part > 255) {
            return false;
        }
        value = value << 8 | part;
    }
    if (at != text.size()) {
        return false;
    }
    *ip = value;
    return true;
}

bool ParseMAC(const std::string& text, std::string* mac)
{
    if (text.size() != 17) {
        return false;
    }
    const char separator = text[2];
    if (separator != '-' && separator != ':') {
        return false;
    }
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i % 3 == 2) {
            if (c != separator) {
                return false;
            }
            out += '-';
        } else if (isxdigit(static_cast<unsigned char>(c))) {
            out += static_cast<char>(toupper(static_cast<unsigned char>(c)));
        } else {
            return false;
        }
    }
    *mac = out;
    return true;
}

bool InRanges(const std::vector<ADDRESS_RANGE>& ranges, unsigned int ip)
{
    return std::any_of(ranges.begin(), ranges.end(),
                       [ip](const ADDRESS_RANGE& range) { return ip >= range.nFirst && ip <= range.nLast; });
}

std::vector<ADDRESS_RANGE> SubtractRanges(const std::vector<ADDRESS_RANGE>& ranges,
                                          const std::vector<ADDRESS_RANGE>& cut)
{
    std::vector<ADDRESS_RANGE> left = ranges;
    for (const ADDRESS_RANGE& hole : cut) {
        std::vector<ADDRESS_RANGE> next;
        for (const ADDRESS_RANGE& range : left) {
            if (hole.nLast < range.nFirst || hole.nFirst > range.nLast) {
                next.push_back(range);
                continue;
            }
            if (hole.nFirst > range.nFirst) {
                next.push_back(ADDRESS_RANGE{range.nFirst, hole.nFirst - 1});
            }
            if (hole.nLast < range.nLast) {
                next.push_back(ADDRESS_RANGE{hole.nLast + 1, range.nLast});
            }
        }
        left.swap(next);
    }
    return left;
}

std::string RangeText(const ADDRESS_RANGE& range)
{
    return range.nFirst == range.nLast ? DottedText(range.nFirst)
                                       : DottedText(range.nFirst) + "-" + DottedText(range.nLast);
}

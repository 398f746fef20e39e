#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

// Inclusive, host order.
struct ADDRESS_RANGE {
    unsigned int nFirst = 0;
    unsigned int nLast = 0;
};

// Where a value stood in the operator's file, as an error line names it: FILE:LINE:COL.
struct PLAN_PLACE {
    std::string strFile;
    unsigned int nLine = 0;
    unsigned int nColumn = 0;

    std::string Text() const;
};

struct INTERFACE_PLAN {
    std::string strName;  // the report's interface name
    bool bHasPool = false;  // without one the interface keeps the default candidate range
    std::vector<ADDRESS_RANGE> vecPool;
    std::vector<ADDRESS_RANGE> vecExclude;
    PLAN_PLACE stPlace;
};

// A fixed address for one camera, named by serial or by MAC (one of the two is empty).
struct RESERVATION {
    std::string strSerial;
    std::string strMAC;  // report form: upper case, dashes
    unsigned int nIP = 0;
    PLAN_PLACE stPlace;

    std::string Who() const;  // serial or MAC, as messages name the camera
};

// Reservations are added through AddReservation() only: the lookups go through its indexes.
struct ADDRESS_PLAN {
    std::vector<INTERFACE_PLAN> vecInterface;
    std::vector<RESERVATION> vecReservation;

    bool IsEmpty() const { return vecInterface.empty() && vecReservation.empty(); }
    void AddReservation(const RESERVATION& reservation);
    const INTERFACE_PLAN* FindInterface(const std::string& name) const;
    // The reservation of a camera; the serial is matched as the report prints it, the MAC in any case.
    const RESERVATION* FindReservation(const std::string& serial, const std::string& mac) const;
    const RESERVATION* FindReservedAddress(unsigned int ip) const;

private:
    std::unordered_map<std::string, size_t> mapBySerial;
    std::unordered_map<std::string, size_t> mapByMAC;
    std::unordered_map<unsigned int, size_t> mapByAddress;
};

// Adds one file's text to `plan`; every problem of the file is appended to `errors` as
// "FILE:LINE:COL: message". Duplicates are found across the files read into one plan.
void ReadPlanText(const std::string& file, const std::string& text, ADDRESS_PLAN* plan,
                  std::vector<std::string>* errors);

// The files of one configuration in the order they are read: `configFile` alone when given, else
// DIR/autoipconfig.toml and DIR/conf.d/*.toml in name order (those that exist).
std::vector<std::string> PlanFiles(const std::string& configFile, const std::string& dir);

struct PLAN_LOAD {
    std::shared_ptr<const ADDRESS_PLAN> pPlan;  // null: no file, or nothing in it
    std::vector<std::string> vecError;
};

const char kPlanDir[] = "/etc/autoipconfig";

// Reads the configuration; a missing default file is no plan, a missing --config file an error.
PLAN_LOAD LoadAddressPlan(const std::string& configFile, const std::string& dir = kPlanDir);

// Dotted quad with four groups of 0 to 255 only; false for anything else.
bool ParseIPv4(const std::string& text, unsigned int* ip);
// 00-0F-31-AA-00-02 or 00:0f:31:aa:00:02 to the report form; false for anything else.
bool ParseMAC(const std::string& text, std::string* mac);
bool InRanges(const std::vector<ADDRESS_RANGE>& ranges, unsigned int ip);
// `ranges` with every address of `cut` taken out, in the same order.
std::vector<ADDRESS_RANGE> SubtractRanges(const std::vector<ADDRESS_RANGE>& ranges,
                                          const std::vector<ADDRESS_RANGE>& cut);
std::string RangeText(const ADDRESS_RANGE& range);

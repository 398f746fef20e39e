// The address plan's reader: input = the text of an operator's file. Any bytes give errors that name
// their place, or a plan whose every entry is well formed; never a crash.
#include "Fuzz.h"

#include "ipconfig/AddressPlan.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    ADDRESS_PLAN plan;
    std::vector<std::string> errors;
    ReadPlanText("f.toml", text, &plan, &errors);
    for (const std::string& error : errors) {
        FUZZ_CHECK(error.compare(0, 7, "f.toml:") == 0 && error.find(": ", 7) != std::string::npos);
    }
    for (const INTERFACE_PLAN& itf : plan.vecInterface) {
        for (const ADDRESS_RANGE& range : itf.vecPool) {
            FUZZ_CHECK(range.nFirst <= range.nLast);
        }
    }
    for (const RESERVATION& reservation : plan.vecReservation) {
        FUZZ_CHECK(reservation.strSerial.empty() != reservation.strMAC.empty());
        FUZZ_CHECK(plan.FindReservedAddress(reservation.nIP) == &reservation);
    }
    // The same file read again clashes with itself on every reservation.
    const size_t reserved = plan.vecReservation.size();
    ReadPlanText("f.toml", text, &plan, &errors);
    FUZZ_CHECK(plan.vecReservation.size() == reserved);
    return 0;
}

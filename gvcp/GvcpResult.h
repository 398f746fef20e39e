#pragma once

#include <cstdint>
#include <string>

namespace GenICam {
namespace Client {

// How one GVCP exchange (command and acknowledge) ended: a value the reports read.
enum GVCP_RESULT_KIND {
    GVCP_RESULT_NOT_RUN = 0,     // never attempted
    GVCP_RESULT_OK,              // acknowledged with status 0
    GVCP_RESULT_REFUSED,         // acknowledged with a non-zero status: nStatus
    GVCP_RESULT_NO_ANSWER,       // no acknowledge within the wait
    GVCP_RESULT_BAD_ACK,         // only acknowledges that did not decode came
    GVCP_RESULT_SEND_FAILED,     // the command could not be sent: nErrno
    GVCP_RESULT_SOCKET_FAILED,   // an endpoint could not be opened or read: nErrno
    GVCP_RESULT_STOPPED,         // a stop was requested during the exchange
    GVCP_RESULT_NOT_SUPPORTED,   // the device lacks the feature (persistent IP)
};

struct GVCP_RESULT {
    GVCP_RESULT_KIND nKind = GVCP_RESULT_NOT_RUN;
    uint16_t nStatus = 0;  // the device's status with GVCP_RESULT_REFUSED
    int nErrno = 0;        // with GVCP_RESULT_SEND_FAILED and GVCP_RESULT_SOCKET_FAILED

    bool IsOk() const { return nKind == GVCP_RESULT_OK; }
};

// What one force-IP did to one device: the move, and with the standard path the store and the
// control give-back.
struct FORCEIP_OUTCOME {
    GVCP_RESULT stMove;      // 0x9000 (vendor path) or FORCEIP carrying the address (standard path)
    GVCP_RESULT stStore;     // persistent registers written and read back; NOT_RUN on the vendor path
    GVCP_RESULT stGiveBack;  // control privilege given back; NOT_RUN when control was never asked for
};

// How an exchange ended, in words: "no answer", "refused (status 0x8006)", "not sent: Network is unreachable".
std::string GvcpResultText(const GVCP_RESULT& result);
// The same for a force-IP's move step, in the report's words: "command not implemented (status 0x8001)",
// "force-IP not sent: ..."; empty when it was acknowledged.
std::string ForceIPText(const GVCP_RESULT& move);

} // namespace Client
} // namespace GenICam

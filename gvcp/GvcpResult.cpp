#include "gvcp/GvcpResult.h"

#include "common/Helper.h"
#include "gvcp/GvcpProtocol.h"

#include <system_error>

namespace GenICam {
namespace Client {

namespace {

std::string WithErrno(const char* text, int error)
{
    return error == 0 ? std::string(text) : std::string(text) + ": " + std::generic_category().message(error);
}

} // namespace

std::string GvcpResultText(const GVCP_RESULT& result)
{
    switch (result.nKind) {
    case GVCP_RESULT_OK:
        return "acknowledged";
    case GVCP_RESULT_REFUSED:
        return Helper::MsgComposer("refused (status 0x%04x)", static_cast<unsigned int>(result.nStatus));
    case GVCP_RESULT_NO_ANSWER:
        return "no answer";
    case GVCP_RESULT_BAD_ACK:
        return "no valid acknowledge";
    case GVCP_RESULT_SEND_FAILED:
        return WithErrno("not sent", result.nErrno);
    case GVCP_RESULT_SOCKET_FAILED:
        return WithErrno("no endpoint", result.nErrno);
    case GVCP_RESULT_STOPPED:
        return "stopped before an answer";
    case GVCP_RESULT_NOT_SUPPORTED:
        return "not supported";
    default:
        return "not tried";
    }
}

std::string ForceIPText(const GVCP_RESULT& move)
{
    switch (move.nKind) {
    case GVCP_RESULT_OK:
        return "";
    case GVCP_RESULT_REFUSED:
        return move.nStatus == GVCP_STATUS_NOT_IMPLEMENTED ? "command not implemented (status 0x8001)"
                                                           : GvcpResultText(move);
    case GVCP_RESULT_NO_ANSWER:
    case GVCP_RESULT_BAD_ACK:
    case GVCP_RESULT_STOPPED:
        return GvcpResultText(move);
    case GVCP_RESULT_NOT_SUPPORTED:
        return "force-IP not supported";
    default:
        return WithErrno("force-IP not sent", move.nErrno);
    }
}

} // namespace Client
} // namespace GenICam

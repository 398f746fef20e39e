#pragma once

namespace GenICam {
namespace Client {

// The error codes the system raises and returns.
enum : int {
    GC_ERR_SUCCESS = 0,
    GC_ERR_ERROR = -1001,
    GC_ERR_NOT_IMPLEMENTED = -1003,
    GC_ERR_ACCESS_DENIED = -1005,
    GC_ERR_INVALID_PARAMETER = -1009,
    GC_ERR_IO = -1010,
    GC_ERR_TIMEOUT = -1011,
    GC_ERR_INVALID_ADDRESS = -1015,
    GC_ERR_STOPPED = -1099, // a stop request ended a wait: unwind, do not retry
};

} // namespace Client
} // namespace GenICam

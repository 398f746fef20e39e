#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace aictest {

// Captures one interface of the caller's namespace with tshark, then decodes the capture with
// tshark's own dissectors: an independent check of what went on the wire. Example:
//
//     TsharkCapture capture(PeerLink::kHostIf);       // returns once the capture runs
//     ... send ...
//     capture.Stop();
//     auto rows = capture.Fields({"gvcp.cmd.command", "gvcp.cmd.req_id"}, "gvcp.cmd.command");
//     EXPECT_TRUE(capture.Problems().empty());
//
// Answers to other ports than 3956 need decodeAs, e.g. {"udp.port==59001,gvcp"}.
class TsharkCapture {
public:
    explicit TsharkCapture(const std::string& interface, const std::string& captureFilter = "udp");
    ~TsharkCapture();
    TsharkCapture(const TsharkCapture&) = delete;
    TsharkCapture& operator=(const TsharkCapture&) = delete;

    // Ends the capture and flushes the file; later calls do nothing.
    void Stop();

    // One row per packet matching displayFilter, one string per field (values as tshark prints them).
    std::vector<std::vector<std::string>> Fields(const std::vector<std::string>& fields,
                                                 const std::string& displayFilter,
                                                 const std::vector<std::string>& decodeAs = {}) const;
    // Summary lines of packets tshark flags as malformed or with expert warnings or errors.
    std::vector<std::string> Problems(const std::vector<std::string>& decodeAs = {}) const;

private:
    std::string __Decode(const std::string& arguments, const std::vector<std::string>& decodeAs) const;

    std::string m_dir;
    pid_t m_pid = -1;
};

} // namespace aictest

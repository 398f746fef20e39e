#include "support/Tshark.h"

#include "support/NetNamespace.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace aictest {

namespace {

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty()) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::vector<std::string> SplitTabs(const std::string& line)
{
    std::vector<std::string> cells;
    std::istringstream in(line);
    for (std::string cell; std::getline(in, cell, '\t');) {
        cells.push_back(cell);
    }
    return cells;
}

} // namespace

TsharkCapture::TsharkCapture(const std::string& interface, const std::string& captureFilter)
{
    char pattern[] = "/tmp/aic-tshark-XXXXXX";
    if (mkdtemp(pattern) == nullptr) {
        throw std::runtime_error("tshark: no temporary directory");
    }
    m_dir = pattern;
    const std::string log = m_dir + "/capture.log";
    const std::string file = m_dir + "/capture.pcapng";
    m_pid = fork();
    if (m_pid == 0) {
        const int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(out, STDOUT_FILENO);
        dup2(out, STDERR_FILENO);
        execlp("tshark", "tshark", "-n", "-q", "-i", interface.c_str(), "-f", captureFilter.c_str(), "-w",
               file.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    // "Capturing on" comes before dumpcap has opened the interface; "Capture started" after.
    for (int i = 0; i < 200; ++i) {
        if (ReadFile(log).find("Capture started") != std::string::npos) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    Stop();
    throw std::runtime_error("tshark did not start: " + ReadFile(log));
}

TsharkCapture::~TsharkCapture()
{
    Stop();
    Capture("rm -rf '" + m_dir + "'");
}

void TsharkCapture::Stop()
{
    if (m_pid <= 0) {
        return;
    }
    // Give the kernel a moment to hand the last packets to the capture before it ends.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(m_pid, SIGINT);
    int status = 0;
    waitpid(m_pid, &status, 0);
    m_pid = -1;
}

std::string TsharkCapture::__Decode(const std::string& arguments, const std::vector<std::string>& decodeAs) const
{
    std::string command = "tshark -n -r '" + m_dir + "/capture.pcapng'";
    for (const std::string& rule : decodeAs) {
        command += " -d '" + rule + "'";
    }
    return Capture(command + " " + arguments + " 2>/dev/null");
}

std::vector<std::vector<std::string>> TsharkCapture::Fields(const std::vector<std::string>& fields,
                                                            const std::string& displayFilter,
                                                            const std::vector<std::string>& decodeAs) const
{
    std::string arguments = "-Y '" + displayFilter + "' -T fields -E separator=/t -E occurrence=a -E aggregator=,";
    for (const std::string& field : fields) {
        arguments += " -e " + field;
    }
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line : Lines(__Decode(arguments, decodeAs))) {
        rows.push_back(SplitTabs(line));
        rows.back().resize(fields.size());
    }
    return rows;
}

std::vector<std::string> TsharkCapture::Problems(const std::vector<std::string>& decodeAs) const
{
    return Lines(__Decode("-Y '_ws.malformed || _ws.expert.severity >= warning'", decodeAs));
}

} // namespace aictest

#include "support/NetNamespace.h"

#include <array>
#include <cstdio>
#include <sched.h>

namespace aictest {

void NetNamespaceTest::SetUp()
{
    ASSERT_EQ(unshare(CLONE_NEWNET), 0) << "needs root: cannot create a network namespace";
    Sh("ip link set lo up");
}

void NetNamespaceTest::Sh(const std::string& command)
{
    ASSERT_EQ(system(command.c_str()), 0) << command;
}

std::string Capture(const std::string& command)
{
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return out;
    }
    std::array<char, 512> chunk;
    size_t n;
    while ((n = fread(chunk.data(), 1, chunk.size(), pipe)) > 0) {
        out.append(chunk.data(), n);
    }
    pclose(pipe);
    return out;
}

std::string MacOf(const std::string& interface)
{
    return Capture("ip -br link show " + interface + " | awk '{print $3}' | tr a-f: A-F-").substr(0, 17);
}

} // namespace aictest

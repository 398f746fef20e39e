#include "gvcp/UdpComm.h"

#include "AppErrorMatch.h"
#include "common/Helper.h"
#include "common/InstanceFactory.h"
#include "common/StopToken.h"
#include "support/NetNamespace.h"

#include <arpa/inet.h>
#include <cerrno>
#include <functional>
#include <memory>

using namespace GenICam::Client;
using aictest::RaisesApp;

namespace {

const unsigned int kLoopback = 0x7F000001;

struct UdpDeleter {
    void operator()(CUdpComm* comm) const
    {
        comm->Close();
        CInstanceFactory::DestoryUdpCommIntstance(comm);
    }
};
using Udp = std::unique_ptr<CUdpComm, UdpDeleter>;

Udp OpenUdp(unsigned int ip, int port)
{
    Udp comm(CInstanceFactory::CreateUdpCommIntstance());
    comm->Open(ip, port, false, false);
    return comm;
}

class UdpComm : public aictest::NetNamespaceTest {};

} // namespace

TEST_F(UdpComm, RaisesTheErrorsItCanBeDrivenInto)
{
    unsigned char byte = 0;
    unsigned int ip = 0, port = 0, count = 0;
    CUdpComm closed;
    Udp open = OpenUdp(kLoopback, 40001);
    struct Case {
        const char* name;
        std::function<void()> action;
        int code;
        const char* function;
        std::string message;
    } cases[] = {
        {"send closed", [&] { closed.Send(&byte, 1, kLoopback, 1, &count); }, -1001, "Send",
         "UDPComm::Send, Invilid Socket !"},
        {"receive null buffer", [&] { open->Receive(nullptr, 1, &ip, &port, &count, 0); }, -1001, "Receive",
         "UDPComm::Receive, Invilid Param !"},
        {"receive time-out", [&] { open->Receive(&byte, 1, &ip, &port, &count, 0); }, -1011, "Receive",
         "The configuration could not be save !"},
        {"bind foreign address", [&] { CUdpComm().Open(0x0A630001, 40002, false, false); }, -1010, "Open",
         Helper::MsgComposer("socket error %d", EADDRNOTAVAIL)},
        {"port of closed socket", [&] { unsigned short p; closed.GetHostPort(p); }, -1001, "GetHostPort",
         "CUdpComm::GetPort, getsockname error"},
        {"join non-multicast", [&] { open->JoinMulticast(ip_mreq{{htonl(kLoopback)}, {0}}); }, -1001,
         "JoinMulticast", "CUdpComm::JoinMulticast, setsockopt error"},
    };
    for (const Case& c : cases) {
        EXPECT_TRUE(RaisesApp(c.action, c.code, c.function, c.message)) << c.name;
    }
    // A stop ends even a long wait at once, and is told apart from a time-out so callers do not retry.
    // The stop cannot be taken back, so a child process asks for it.
    EXPECT_EXIT(
        {
            ProcessStopToken().Request();
            const bool raised = RaisesApp([&] { open->Receive(&byte, 1, &ip, &port, &count, 60000); }, -1099,
                                          "Receive", "Stopped.");
            _exit(raised ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

#include "common/ipcalc.h"
#include "device/Device.h"
#include "device/Interface.h"
#include "ipconfig/IPConfigAllDevices.h"
#include "support/Records.h"

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using namespace GenICam::Client;

namespace {

unsigned int Ip(const char* text)
{
    return Cipcalc().iptolong(text);
}

using Rounds = std::vector<std::vector<std::string>>;

// An interface that exists only in memory; probes go to the fake prober below.
std::unique_ptr<CInterface> MakeInterface(const char* ip, const char* mask)
{
    return std::unique_ptr<CInterface>(new CInterface(aictest::MakeSnapshot("eth0", Ip(ip), Ip(mask)), nullptr));
}

// Answers taken for the addresses of a list, failed for those with "!" before them; logs every round asked.
class FakeProber : public IAddressProber {
public:
    FakeProber(const std::vector<std::string>& answered, Rounds* rounds) : m_answered(answered), m_rounds(rounds) {}
    std::vector<ARP_PROBE_RESULT> Probe(const std::vector<unsigned int>& candidates) override
    {
        const auto listed = [this](const std::string& ip) {
            return std::find(m_answered.begin(), m_answered.end(), ip) != m_answered.end();
        };
        m_rounds->emplace_back();
        std::vector<ARP_PROBE_RESULT> verdicts;
        for (unsigned int candidate : candidates) {
            const std::string ip = DottedText(candidate);
            m_rounds->back().push_back(ip);
            verdicts.push_back(listed("!" + ip) ? ARP_PROBE_RESULT{ARP_PROBE_FAILED, EPERM}
                                                : ARP_PROBE_RESULT{listed(ip) ? ARP_PROBE_TAKEN : ARP_PROBE_FREE, 0});
        }
        return verdicts;
    }

private:
    const std::vector<std::string>& m_answered;
    Rounds* m_rounds;
};

class Planner : public CIPConfigAllDevices {
public:
    explicit Planner(CInterface* itf) : CIPConfigAllDevices(itf, &ms_pass)
    {
        m_nNetCardIP = itf->GetInterfaceIP();
        m_nNetCardMask = itf->GetInterfaceSubnetMask();
    }
    bool ConfigAllDevices() override { return true; }
    bool PlanAddresses() override { return true; }

    static void Taken(const std::vector<const char*>& ips)
    {
        for (const char* ip : ips) {
            ms_vecUsedIP.push_back(Ip(ip));
        }
    }
    void Select(size_t count) { m_vecConfigDevice.assign(count, nullptr); }

    std::vector<std::string> m_answered;
    Rounds m_rounds;

protected:
    std::unique_ptr<IAddressProber> _CreateProber(const PROBE_LINK&) override
    {
        return std::unique_ptr<IAddressProber>(new FakeProber(m_answered, &m_rounds));
    }

private:
    static CConfigPass ms_pass;
};

CConfigPass Planner::ms_pass{PASS_OPTIONS()};

struct SEARCH {
    bool enough;
    std::vector<std::string> found;
    Rounds rounds;
};

// One candidate search with `listed` already recorded; a fake prober answers for `answered`.
SEARCH Search(const char* ip, const char* mask, const std::vector<const char*>& listed, size_t wanted,
              const std::vector<std::string>& answered = {})
{
    CIPConfigAllDevices::Clear();
    Planner::Taken(listed);
    auto itf = MakeInterface(ip, mask);
    Planner planner(itf.get());
    planner.m_answered = answered;
    planner.Select(wanted);
    std::vector<unsigned int> list;
    SEARCH search{planner.GetIPList(&list), {}, planner.m_rounds};
    for (unsigned int found : list) {
        search.found.push_back(DottedText(found));
    }
    return search;
}

} // namespace

TEST(IsIPValid, ZeroAndLinkLocalAreUnusable)
{
    const struct {
        unsigned int ip;
        bool valid;
    } cases[] = {
        {0, false},         {0xA9FE0000, false}, {0xA9FE0304, false}, {0xA9FEFFFF, false},
        {0xA9FDFFFF, true}, {0xA9FF0000, true},  {0x00000001, true},  {0xFFFFFFFF, true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(IsIPValid(c.ip), c.valid) << std::hex << c.ip;
    }
}

TEST(PlannerRounds, ProbesAsManyAsStillWantedAndReplacesTakenOnesInAddressOrder)
{
    const struct {
        const char* name;
        const char* ip;
        const char* mask;
        std::vector<const char*> listed;
        std::vector<std::string> answered;
        size_t wanted;
        Rounds rounds;
        bool enough;
        std::vector<std::string> found;
    } cases[] = {
        {"all free in one round", "192.168.1.5", "255.255.255.0", {}, {}, 3,
         {{"192.168.1.11", "192.168.1.12", "192.168.1.13"}}, true,
         {"192.168.1.11", "192.168.1.12", "192.168.1.13"}},
        {"taken ones replaced", "192.168.1.5", "255.255.255.0", {}, {"192.168.1.12", "192.168.1.14"}, 3,
         {{"192.168.1.11", "192.168.1.12", "192.168.1.13"}, {"192.168.1.14"}, {"192.168.1.15"}}, true,
         {"192.168.1.11", "192.168.1.13", "192.168.1.15"}},
        {"the list before the wire", "192.168.1.5", "255.255.255.0", {"192.168.1.11"}, {"192.168.1.13"}, 2,
         {{"192.168.1.12", "192.168.1.13"}, {"192.168.1.14"}}, true, {"192.168.1.12", "192.168.1.14"}},
        {"the range ends", "10.0.0.241", "255.255.255.240", {}, {"10.0.0.252", "10.0.0.253"}, 3,
         {{"10.0.0.251", "10.0.0.252", "10.0.0.253"}, {"10.0.0.254"}}, false, {"10.0.0.251", "10.0.0.254"}},
        {"nothing wanted, nothing probed", "192.168.1.5", "255.255.255.0", {}, {}, 0, {}, true, {}},
        {"a /23 starts at its network + 11", "10.0.2.5", "255.255.254.0", {}, {}, 1, {{"10.0.2.11"}}, true,
         {"10.0.2.11"}},
        {"a /29's first candidate carries past its last", "10.0.0.249", "255.255.255.248", {}, {}, 1, {}, false, {}},
        {"a probe not sent fails the search", "192.168.1.5", "255.255.255.0", {}, {"!192.168.1.12"}, 3,
         {{"192.168.1.11", "192.168.1.12", "192.168.1.13"}}, false, {"192.168.1.11"}},
    };
    for (const auto& c : cases) {
        const SEARCH search = Search(c.ip, c.mask, c.listed, c.wanted, c.answered);
        EXPECT_EQ(search.enough, c.enough) << c.name;
        EXPECT_EQ(search.found, c.found) << c.name;
        EXPECT_EQ(search.rounds, c.rounds) << c.name;
    }
}

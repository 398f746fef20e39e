#include "common/ipcalc.h"
#include "device/Interface.h"
#include "ipconfig/AddressPlan.h"
#include "ipconfig/IPConfigPlanned.h"
#include "support/Records.h"

#include <algorithm>
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

std::vector<std::string> Errors(const std::string& text)
{
    ADDRESS_PLAN plan;
    std::vector<std::string> errors;
    ReadPlanText("f.toml", text, &plan, &errors);
    return errors;
}

// Answers taken for the listed addresses.
class ListProber : public IAddressProber {
public:
    explicit ListProber(std::vector<std::string> answered) : m_answered(std::move(answered)) {}
    std::vector<ARP_PROBE_RESULT> Probe(const std::vector<unsigned int>& candidates) override
    {
        std::vector<ARP_PROBE_RESULT> verdicts;
        for (unsigned int ip : candidates) {
            const bool taken = std::find(m_answered.begin(), m_answered.end(), DottedText(ip)) != m_answered.end();
            verdicts.push_back(ARP_PROBE_RESULT{taken ? ARP_PROBE_TAKEN : ARP_PROBE_FREE, 0});
        }
        return verdicts;
    }

private:
    std::vector<std::string> m_answered;
};

class Planned : public CIPConfigPlanned {
public:
    Planned(CInterface* itf, CConfigPass* pass, std::vector<std::string> answered)
        : CIPConfigPlanned(itf, pass), m_answered(std::move(answered))
    {
    }

protected:
    std::unique_ptr<IAddressProber> _CreateProber(const PROBE_LINK&) override
    {
        return std::unique_ptr<IAddressProber>(new ListProber(m_answered));
    }

private:
    std::vector<std::string> m_answered;
};

struct CAM {
    const char* serial;
    const char* ip;
};

// A dry-run pass on eth0 192.168.1.5/24 (cameras' MACs end in 01, 02, ...): "serial action address reason".
std::vector<std::string> Plan(const std::string& toml, const std::vector<CAM>& cams,
                              const std::vector<std::string>& answered = {},
                              const std::vector<REMEMBERED_ADDRESS>& remembered = {})
{
    auto plan = std::make_shared<ADDRESS_PLAN>();
    std::vector<std::string> errors;
    ReadPlanText("f.toml", toml, plan.get(), &errors);
    EXPECT_TRUE(errors.empty()) << errors.front();
    CInterface itf(aictest::MakeSnapshot("eth0", Ip("192.168.1.5"), Ip("255.255.255.0")), nullptr);
    uint8_t n = 0;
    for (const CAM& cam : cams) {
        aictest::CameraModel model = aictest::CameraAt("CAM", ++n, Ip(cam.ip));
        model.serial = cam.serial;
        aictest::AddCamera(&itf, model);
    }
    PASS_OPTIONS options;
    options.bDryRun = true;
    options.pPlan = plan;
    options.vecRemembered = remembered;
    CIPConfigAllDevices::Clear();
    CConfigPass pass(options);
    pass.RecordSeen(SeeInterfaces({&itf}));
    CIPConfigAllDevices::RecordUsedNetCardIP({&itf}, pass);
    Planned planner(&itf, &pass, answered);
    planner.PlanAddresses();
    planner.SendPlanned();
    std::vector<std::string> lines;
    for (const CAMERA_REPORT& camera : pass.Settle(SeeInterfaces({&itf})).front().vecCamera) {
        const CAMERA_OUTCOME& outcome = camera.stOutcome;
        lines.push_back(camera.stCamera.strSerial + " " + ActionText(outcome.nAction) + " " +
                        DottedText(outcome.nNewIP != 0 ? outcome.nNewIP : outcome.nOldIP) + " " + ReasonText(outcome));
    }
    return lines;
}

std::string Reserve(const char* who, const char* address)
{
    const std::string key = std::string(who).find_first_of("-:") != std::string::npos ? "mac" : "serial";
    return "[[camera]]\n" + key + " = \"" + who + "\"\naddress = \"" + address + "\"\n";
}

const char kDry[] = " (dry run: nothing sent)";

} // namespace

TEST(PlanReader, EveryErrorWithItsPlace)
{
    const struct {
        std::string text;
        std::vector<std::string> errors;
    } cases[] = {
        {"# comments only\n", {}},
        {"[interface.eth0]\npool = [\"10.0.0.1-10.0.0.9\", \"10.0.0.20\"]\nexclude = []\n"
         "[[camera]]\nmac = \"00:0f:31:aa:00:02\"\naddress = \"10.0.0.5\"\n",
         {}},
        {"a = [\n", {"f.toml:1:7: Error while parsing array: encountered end-of-file"}},
        {"[[camera]]\nserial = \"A\"\naddress = \"10.0.0.1\"\nadress = \"x\"\n",
         {"f.toml:4:1: unknown key \"adress\" in [[camera]]"}},
        {"y = 2\n[interface.eth0]\ncolour = 1\n[other]\nx = 1\n",
         {"f.toml:1:1: unknown key \"y\"", "f.toml:3:1: unknown key \"colour\" in [interface.eth0]",
          "f.toml:4:2: unknown section [other]"}},
        {"interface = 1\ncamera = \"x\"\n",
         {"f.toml:1:1: \"interface\" must be a table of interfaces: [interface.NAME]",
          "f.toml:2:1: \"camera\" must be an array of tables: [[camera]]"}},
        {"[interface.eth0]\npool = \"10.0.0.1\"\nexclude = [1, \"10.0.0.300\", \"10.0.0.9-10.0.0.1\", \"10.0.0\"]\n",
         {"f.toml:2:8: \"pool\" must be an array of addresses and ranges",
          "f.toml:3:12: \"exclude\" must hold strings such as \"192.168.1.100-192.168.1.149\"",
          "f.toml:3:15: \"10.0.0.300\" is not an IPv4 address or range",
          "f.toml:3:29: range \"10.0.0.9-10.0.0.1\" starts above its end",
          "f.toml:3:50: \"10.0.0\" is not an IPv4 address or range"}},
        {"[[camera]]\nserial = \"A\"\n[[camera]]\naddress = \"10.0.0.1\"\n"
         "[[camera]]\nserial = \"B\"\nmac = \"00-11-22-33-44-55\"\naddress = \"10.0.0.2\"\n",
         {"f.toml:1:1: [[camera]] has no \"address\"", "f.toml:3:1: [[camera]] has neither \"serial\" nor \"mac\"",
          "f.toml:5:1: [[camera]] has both \"serial\" and \"mac\": give one"}},
        {"[[camera]]\nserial = 7\naddress = \"1.2.3\"\n[[camera]]\nmac = \"00-11-22-33-44\"\naddress = \"10.0.0.1\"\n"
         "[[camera]]\nserial = \"\"\naddress = \"10.0.0.2\"\n",
         {"f.toml:2:10: \"serial\" in [[camera]] must be a string", "f.toml:3:11: \"1.2.3\" is not an IPv4 address",
          "f.toml:5:7: \"00-11-22-33-44\" is not a MAC address", "f.toml:8:10: \"serial\" in [[camera]] is empty"}},
        {Reserve("A", "10.0.0.1") + Reserve("B", "10.0.0.1") + Reserve("00-11-22-33-44-55", "10.0.0.2") +
             Reserve("00:11:22:33:44:55", "10.0.0.3"),
         {"f.toml:4:1: address 10.0.0.1 is reserved twice (first at f.toml:1:1)",
          "f.toml:10:1: camera 00-11-22-33-44-55 is reserved twice (first at f.toml:7:1)"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Errors(c.text), c.errors) << c.text;
    }
}

TEST(PlanReader, FilesAddUpAndClashAcrossFiles)
{
    ADDRESS_PLAN plan;
    std::vector<std::string> errors;
    ReadPlanText("a.toml", "[interface.eth0]\npool = [\"10.0.0.1\"]\n" + Reserve("A", "10.0.0.9"), &plan, &errors);
    ReadPlanText("b.toml", "[interface.eth0]\n" + Reserve("a", "10.0.0.9"), &plan, &errors);
    EXPECT_EQ(errors, (std::vector<std::string>{"b.toml:1:12: [interface.eth0] is planned twice (first at a.toml:1:12)",
                                                "b.toml:2:1: address 10.0.0.9 is reserved twice (first at a.toml:3:1)"}));
    ASSERT_NE(plan.FindReservation("A", ""), nullptr);
    EXPECT_EQ(plan.FindReservation("a", ""), nullptr);  // serials are matched exactly
}

TEST(PlanRanges, SubtractKeepsOrderAndSplits)
{
    const std::vector<ADDRESS_RANGE> left =
        SubtractRanges({{10, 20}, {30, 30}, {0xFFFFFFF0, 0xFFFFFFFF}}, {{12, 13}, {30, 30}, {0xFFFFFFFF, 0xFFFFFFFF}});
    ASSERT_EQ(left.size(), 3u);
    EXPECT_EQ(left[0].nLast, 11u);
    EXPECT_EQ(left[1].nFirst, 14u);
    EXPECT_EQ(left[2].nLast, 0xFFFFFFFEu);
    CPoolWalk walk({{0xFFFFFFFE, 0xFFFFFFFF}, {5, 9}}, {6}, [](unsigned int ip) { return ip == 7; });
    EXPECT_EQ(walk.Next(3), (std::vector<unsigned int>{0xFFFFFFFE, 0xFFFFFFFF, 5}));
    EXPECT_EQ(walk.Next(9), (std::vector<unsigned int>{8, 9, 6}));
    EXPECT_TRUE(walk.Next(1).empty());
}

TEST(PlannedInterface, ReservationsPoolsAndMemory)
{
    const std::string pool = "[interface.eth0]\npool = [\"192.168.1.100-192.168.1.105\"]\nexclude = [\"192.168.1.100-192.168.1.101\"]\n";
    const struct {
        const char* what;
        std::string toml;
        std::vector<CAM> cams;
        std::vector<std::string> answered;
        std::vector<REMEMBERED_ADDRESS> remembered;
        std::vector<std::string> expected;
    } cases[] = {
        {"by serial and by MAC, a fitting camera moved too",
         Reserve("S1", "192.168.1.50") + Reserve("00-11-1c-01-02-02", "192.168.1.51"),
         {{"S1", "10.0.0.7"}, {"S2", "192.168.1.20"}, {"S3", "192.168.1.21"}},
         {},
         {},
         {"S1 planned 192.168.1.50 reserved" + std::string(kDry), "S2 planned 192.168.1.51 reserved" + std::string(kDry),
          "S3 kept 192.168.1.21 "}},
        {"a camera on a reserved address moves to the pool first; an absent one's address is never handed out",
         Reserve("S2", "192.168.1.11") + Reserve("GONE", "192.168.1.12"),
         {{"S1", "192.168.1.11"}, {"S2", "10.0.0.8"}, {"S3", "0.0.0.0"}},
         {},
         {},
         {"S1 planned 192.168.1.13 dry run: nothing sent", "S2 planned 192.168.1.11 reserved" + std::string(kDry),
          "S3 planned 192.168.1.14 dry run: nothing sent"}},
        {"pool with exclusions and an answering host",
         pool + Reserve("GONE", "192.168.1.102"),
         {{"S1", "10.0.0.7"}, {"S2", "192.168.1.30"}},
         {"192.168.1.103"},
         {},
         {"S1 planned 192.168.1.104 dry run: nothing sent", "S2 kept 192.168.1.30 "}},
        {"reservation outside the subnet, on the host's address, on an answering host",
         Reserve("S1", "10.9.9.9") + Reserve("S2", "192.168.1.5") + Reserve("S3", "192.168.1.60"),
         {{"S1", "10.0.0.7"}, {"S2", "10.0.0.8"}, {"S3", "10.0.0.9"}},
         {"192.168.1.60"},
         {},
         {"S1 kept 10.0.0.7 reserved address 10.9.9.9 is not in eth0's subnet",
          "S2 kept 10.0.0.8 reserved address 192.168.1.5 is taken by 02-00-00-00-00-01",
          "S3 kept 10.0.0.9 reserved address 192.168.1.60 is taken by a host that answers for it"}},
        {"all or nothing for pool cameras; the reserved one still goes",
         "[interface.eth0]\npool = [\"192.168.1.100\"]\n" + Reserve("S3", "192.168.1.50"),
         {{"S1", "10.0.0.7"}, {"S2", "10.0.0.8"}, {"S3", "10.0.0.9"}},
         {},
         {},
         {"S1 kept 10.0.0.7 no free address for every camera of this interface",
          "S2 kept 10.0.0.8 no free address for every camera of this interface",
          "S3 planned 192.168.1.50 reserved" + std::string(kDry)}},
        {"remembered first, a taken memory falls back, an absent camera's memory skipped",
         "",
         {{"S1", "10.0.0.7"}, {"S2", "10.0.0.8"}, {"S3", "10.0.0.9"}},
         {"192.168.1.40"},
         {{"00-11-1C-01-02-03", "eth0", Ip("192.168.1.30")}, {"00-11-1C-01-02-02", "eth0", Ip("192.168.1.40")},
          {"00-11-1C-01-02-09", "eth0", Ip("192.168.1.11")}},
         {"S1 planned 192.168.1.12 dry run: nothing sent", "S2 planned 192.168.1.13 dry run: nothing sent",
          "S3 planned 192.168.1.30 dry run: nothing sent"}},
        {"an absent camera's memory is handed out when nothing else is left",
         "[interface.eth0]\npool = [\"192.168.1.100-192.168.1.101\"]\n",
         {{"S1", "10.0.0.7"}, {"S2", "10.0.0.8"}},
         {},
         {{"00-11-1C-01-02-09", "eth0", Ip("192.168.1.100")}},
         {"S1 planned 192.168.1.101 dry run: nothing sent", "S2 planned 192.168.1.100 dry run: nothing sent"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Plan(c.toml, c.cams, c.answered, c.remembered), c.expected) << c.what;
    }
}

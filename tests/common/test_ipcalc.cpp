#include "common/Identity.h"
#include "common/ipcalc.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::string Text(unsigned int ip)
{
    char out[16] = {0};
    Cipcalc().longtoip(ip, out);
    return out;
}

std::string Quad(const int* q)
{
    return std::to_string(q[0]) + "." + std::to_string(q[1]) + "." + std::to_string(q[2]) + "." +
           std::to_string(q[3]);
}

} // namespace

TEST(Ipcalc, TextConversions)
{
    const struct {
        const char* text;
        unsigned int number;
    } cases[] = {
        {"192.168.1.10", 0xC0A8010A}, {"1234.1.1.1", 0}, {"1.2.3", 0x01020300}, {"1..2.3", 0x01000203},
        {"1.2.3.4.5", 0x06020304}, // a fifth group is shifted by 24 again
    };
    Cipcalc c;
    for (const auto& t : cases) {
        EXPECT_EQ(c.iptolong(t.text), t.number) << t.text;
    }
    EXPECT_EQ(Text(0xC0A8010A), "192.168.1.10");
    EXPECT_EQ(c.getipdigit(0xC0A8010A, 1), 192);
    EXPECT_EQ(c.getipdigit(0xC0A8010A, 5), 0);
}

TEST(Ipcalc, TextValidators)
{
    const struct {
        const char* text;
        bool ip, mask, gateway;
    } cases[] = {
        {"192.168.1.254", true, true, true}, {"192.168.1.255", false, true, true},
        {"0.1.2.3", false, false, true},     {"1.2.3.4.5", false, false, false},
        {"10.1.2", true, true, true},        {"0.255.255.0", false, false, true},
        {"255.255.255.255", false, false, false}, {"1.2.3.4x", false, false, false},
        {"", false, false, false},           {"256.1.1.1", false, false, false},
    };
    Cipcalc c;
    for (const auto& t : cases) {
        std::string s = t.text;
        EXPECT_EQ(c.isvalidip(s.c_str()), t.ip) << s;
        EXPECT_EQ(c.isvalidSubnetMask(&s[0]), t.mask) << s;
        EXPECT_EQ(c.isvalidGateway(&s[0]), t.gateway) << s;
    }
    EXPECT_FALSE(c.isvalidSubnetMask(nullptr));
    EXPECT_FALSE(c.isvalidGateway(nullptr));
}

TEST(Ipcalc, MaskBitsAndSameSubnet)
{
    Cipcalc c;
    EXPECT_EQ(c.calcbits(0xFF00FF00), 16);
    EXPECT_EQ(c.calcbits(0xFFFFFFF0), 28);
    EXPECT_TRUE(c.IsInSameSubnet(0xC0A80105, 0xC0A801FE, 0xFFFFFF00));
    EXPECT_FALSE(c.IsInSameSubnet(0xC0A80105, 0xC0A802FE, 0xFFFFFF00));
}

// Classes decide which single prefix lengths isvalidmask refuses (9, 17, 25).
TEST(Ipcalc, ClassesAndMaskValidation)
{
    const struct {
        unsigned int ip, mask;
        char cls;
        bool valid;
    } cases[] = {
        {0x0A000000, 0xFF800000, 'A', false}, {0x0A000000, 0xFFC00000, 'A', true},
        {0x0A000000, 0xFFFFFFFC, 'A', true},  {0x0A000000, 0xFFFFFFFE, 'A', false},
        {0x0A000000, 0xFF00FF00, 'A', false}, {0xAC100000, 0xFFFF8000, 'B', false},
        {0xC0A80100, 0xFFFFFF80, 'C', false}, {0xC0A80100, 0xFFFF0000, 'C', false},
        {0xE0000000, 0xFF800000, 'D', true},  {0xF0000001, 0xFFFFFF00, 'E', true},
    };
    Cipcalc c;
    for (const auto& t : cases) {
        EXPECT_EQ(c.getipclass(t.ip), t.cls) << std::hex << t.ip;
        EXPECT_EQ(c.isvalidmask(t.ip, t.mask), t.valid) << std::hex << t.ip << "/" << t.mask;
    }
}

TEST(Ipcalc, SubnetRangeActsOnTheLastByteAndCarriesOnConversion)
{
    const struct {
        unsigned int ip;
        int bits;
        const char *first, *last;
        unsigned int firstNumber;
    } cases[] = {
        {0xC0A80105, 24, "192.168.1.11", "192.168.1.254", 0xC0A8010B},
        {0x0A010203, 16, "10.1.0.11", "10.1.255.254", 0x0A01000B},
        {0xC0A80181, 25, "192.168.1.139", "192.168.1.254", 0xC0A8018B},
        {0xC0A801F5, 28, "192.168.1.251", "192.168.1.254", 0xC0A801FB},
        {0xC0A801F9, 29, "192.168.1.259", "192.168.1.254", 0xC0A80203},  // carries past .255
        {0xC0A80105, 30, "192.168.1.15", "192.168.1.6", 0xC0A8010F},     // /30: first above last
        {0xC0A80105, 32, "192.168.1.16", "192.168.1.4", 0xC0A80110},
    };
    Cipcalc c;
    for (const auto& t : cases) {
        int first[4], last[4];
        c.getSubnetRange(t.ip, t.bits, first, last);
        EXPECT_EQ(Quad(first), t.first) << t.bits;
        EXPECT_EQ(Quad(last), t.last) << t.bits;
        EXPECT_EQ(c.dottted_decial2long(first), t.firstNumber) << t.bits;
    }
}

// A label names its link up to the colon; a MAC keeps its report text and gets its bytes once.
TEST(Identity, LabelsAndMacs)
{
    using GenICam::Client::CameraIdOf;
    using GenICam::Client::DeviceNameOf;
    EXPECT_EQ(DeviceNameOf("eth3:1"), "eth3");
    EXPECT_EQ(DeviceNameOf("eth3"), "eth3");
    EXPECT_EQ(DeviceNameOf("br0:cam:2"), "br0");
    EXPECT_EQ(GenICam::Client::InterfaceIdOf("lo:9").nIndex, GenICam::Client::InterfaceIdOf("lo").nIndex);
    const GenICam::Client::CAMERA_ID id = CameraIdOf("00-0F-31-aa-00-FE");
    EXPECT_EQ(id.strText, "00-0F-31-aa-00-FE");
    EXPECT_EQ(MacText(id.aMAC.data()), "00-0F-31-AA-00-FE");
    for (const char* bad : {"not a mac", "00-0F-31-AA-00", "00:0F:31:AA:00:02", "00-0F-31-AA-00-G2"}) {
        EXPECT_EQ(MacText(CameraIdOf(bad).aMAC.data()), "00-00-00-00-00-00") << bad;
    }
}

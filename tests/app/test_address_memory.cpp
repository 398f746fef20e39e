#include "app/AddressMemory.h"

#include "common/AtomicFile.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace {

// Exactly as written: one camera a line.
const char* const kOne = "{\"cameras\": [\n  "
                         R"({"mac":"00-0F-31-AA-00-02","serial":"S1","interface":"eth0",)"
                         R"("address":"192.168.1.50","moved":"2026-11-25T06:30:00.123Z"})"
                         "\n]}\n";

std::string Entry(const char* fields)
{
    return std::string(R"({"cameras": [{)") + fields + "}]}";
}

} // namespace

TEST(AddressMemory, ParseAcceptsOnlyWhatItWrites)
{
    const struct {
        std::string text;
        const char* error;  // empty: accepted
    } cases[] = {
        {kOne, ""},
        {R"({"cameras": []})", ""},
        {Entry(R"("mac":"00-0f-31-aa-00-02","serial":"","interface":"e","address":"1.2.3.4","moved":"")"), ""},
        {"", "not a list of cameras"},
        {R"([{"mac":"00-0F-31-AA-00-02"}])", "not a list of cameras"},
        {R"({"cameras": {}})", "not a list of cameras"},
        {R"({"cameras": [7]})", "camera 1: not an object"},
        {Entry(R"("mac":"00:0F:31:AA:00:02","serial":"","interface":"e","address":"1.2.3.4","moved":"")"),
         "camera 1: no MAC address"},
        {Entry(R"("mac":"00-0F-31-AA-00-0","serial":"","interface":"e","address":"1.2.3.4","moved":"")"),
         "camera 1: no MAC address"},
        {Entry(R"("mac":"00-0F-31-AA-00-0G","serial":"","interface":"e","address":"1.2.3.4","moved":"")"),
         "camera 1: no MAC address"},
        {Entry(R"("mac":"00-0F-31-AA-00-02","serial":"","interface":"e","address":"1.2.3","moved":"")"),
         "camera 1: no IPv4 address"},
        {Entry(R"("mac":"00-0F-31-AA-00-02","serial":"","interface":"","address":"1.2.3.4","moved":"")"),
         "camera 1: no interface"},
        {Entry(R"("mac":"00-0F-31-AA-00-02","interface":"e","address":"1.2.3.4","moved":"")"),
         "camera 1: no serial or time"},
    };
    for (const auto& c : cases) {
        std::vector<REMEMBERED_CAMERA> cameras;
        std::string error;
        EXPECT_EQ(ParseAddressMemory(c.text, &cameras, &error), *c.error == '\0') << c.text;
        EXPECT_EQ(error, c.error) << c.text;
    }
    std::vector<REMEMBERED_CAMERA> cameras;
    std::string error;
    ASSERT_TRUE(ParseAddressMemory(kOne, &cameras, &error));
    ASSERT_EQ(cameras.size(), 1u);
    EXPECT_EQ(cameras[0].nIP, 0xC0A80132u);
    EXPECT_EQ(SerializeAddressMemory(cameras), kOne);
    ASSERT_TRUE(ParseAddressMemory(cases[2].text, &cameras, &error));
    EXPECT_EQ(cameras[0].strMAC, "00-0F-31-AA-00-02") << "the report spelling, whatever the file's case";
}

// The newest move wins a camera and an address; the least recently moved are forgotten beyond capacity.
TEST(AddressMemory, RecordKeepsOneAddressPerCameraAndOneCameraPerAddress)
{
    CAddressMemory memory("/nonexistent");
    memory.Record("00-00-00-00-00-01", "A", "eth0", 0x0A000001, 0);
    memory.Record("00-00-00-00-00-02", "B", "eth0", 0x0A000002, 0);
    memory.Record("00-00-00-00-00-03", "C", "eth1", 0x0A000002, 0);  // another link: both kept
    memory.Record("00-00-00-00-00-01", "A", "eth0", 0x0A000003, 0);  // A moved again
    memory.Record("00-00-00-00-00-04", "D", "eth0", 0x0A000002, 1000);  // takes B's address
    std::string order;
    for (const REMEMBERED_ADDRESS& a : memory.Addresses()) {
        order += a.strMAC.substr(15) + "@" + a.strInterface + "/" + std::to_string(a.nIP & 0xFF) + " ";
    }
    EXPECT_EQ(order, "03@eth1/2 01@eth0/3 04@eth0/2 ");
    EXPECT_EQ(memory.Cameras().back().strWhen, "1970-01-01T00:00:01.000Z");

    for (unsigned int i = 0; i < CAddressMemory::kCapacity + 2; ++i) {
        memory.Record("MAC" + std::to_string(i), "", "eth0", 0x0B000000 + i, 0);
    }
    ASSERT_EQ(memory.Cameras().size(), CAddressMemory::kCapacity);
    EXPECT_EQ(memory.Cameras().front().strMAC, "MAC2");
}

TEST(AddressMemory, DirectoryIsTheFirstStateDirectory)
{
    EXPECT_EQ(AddressMemoryDirectory(nullptr), "/var/lib/autoipconfig");
    EXPECT_EQ(AddressMemoryDirectory(""), "/var/lib/autoipconfig");
    EXPECT_EQ(AddressMemoryDirectory("/var/lib/a"), "/var/lib/a");
    EXPECT_EQ(AddressMemoryDirectory("/var/lib/a:/var/lib/b"), "/var/lib/a");
}

// A corrupt file is told once and replaced; a directory that cannot be made is told once.
TEST(AddressMemory, CorruptFileIsReplacedAndFailuresToldOnce)
{
    char base[] = "/tmp/aic-memory-XXXXXX";
    ASSERT_NE(mkdtemp(base), nullptr);
    const std::string dir = std::string(base) + "/state/deeper";
    {
        CAddressMemory memory(dir);
        memory.Load();  // none yet: nothing to tell, nothing to write
        EXPECT_TRUE(memory.Save());
        memory.Record("00-0F-31-AA-00-02", "S1", "eth0", 0xC0A80132, 0);
        ASSERT_TRUE(memory.Save());
    }
    CAddressMemory again(dir);
    again.Load();
    EXPECT_EQ(again.Addresses().size(), 1u);

    int error = 0;
    ASSERT_TRUE(GenICam::Client::WriteFileAtomically(again.FilePath(), "{\"cam", 0644, &error));
    CAddressMemory corrupt(dir);
    testing::internal::CaptureStderr();
    corrupt.Load();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "autoipconfig: " + again.FilePath() + ": corrupt (not a list of cameras): it will be replaced\n");
    EXPECT_TRUE(corrupt.Addresses().empty());
    ASSERT_TRUE(corrupt.Save());
    std::string text;
    ASSERT_TRUE(GenICam::Client::ReadWholeFile(again.FilePath(), &text, &error));
    EXPECT_EQ(text, "{\"cameras\": []}\n");
    struct stat info = {};
    ASSERT_EQ(stat(again.FilePath().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);

    CAddressMemory nowhere(again.FilePath() + "/below-a-file");
    nowhere.Record("00-0F-31-AA-00-02", "S1", "eth0", 0xC0A80132, 0);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(nowhere.Save());
    EXPECT_FALSE(nowhere.Save());
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_NE(told.find("cannot"), std::string::npos);
    EXPECT_EQ(told.find('\n'), told.size() - 1) << told;
    EXPECT_EQ(system(("rm -rf " + std::string(base)).c_str()), 0);
}

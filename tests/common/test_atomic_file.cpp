#include "common/AtomicFile.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

using namespace GenICam::Client;

namespace {

std::string MakeDir()
{
    char name[] = "/tmp/aic-atomic-XXXXXX";
    return mkdtemp(name);
}

int CountEntries(const std::string& dir)
{
    int n = 0;
    DIR* d = opendir(dir.c_str());
    while (dirent* e = readdir(d)) {
        n += e->d_name[0] != '.';
    }
    closedir(d);
    return n;
}

} // namespace

TEST(AtomicFile, ReplacesWholeWithModeAndLeavesNoTemporary)
{
    const std::string dir = MakeDir();
    const std::string path = dir + "/state";
    int error = 0;
    ASSERT_TRUE(WriteFileAtomically(path, "old\n", 0644, &error));
    ASSERT_TRUE(WriteFileAtomically(path, "new\n", 0644, &error));
    std::string content;
    ASSERT_TRUE(ReadWholeFile(path, &content, &error));
    EXPECT_EQ(content, "new\n");
    struct stat st{};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);
    EXPECT_EQ(CountEntries(dir), 1);

    // A directory that cannot take the file: the errno comes back and the old file stays.
    EXPECT_FALSE(WriteFileAtomically(dir + "/missing/state", "x", 0644, &error));
    EXPECT_EQ(error, ENOENT);
    EXPECT_FALSE(ReadWholeFile(dir + "/none", &content, &error));
    EXPECT_EQ(error, ENOENT);
    unlink(path.c_str());
    rmdir(dir.c_str());
}

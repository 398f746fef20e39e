// Replays every file of the given files and folders through the harness once: the seed corpus and
// any saved crash inputs become an ordinary regression test in builds without libFuzzer.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void Replay(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    printf("replay %s (%zu bytes)\n", file.c_str(), bytes.size());
    fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char** argv)
{
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::filesystem::path> files;
        if (std::filesystem::is_directory(argv[i])) {
            for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
                files.push_back(entry.path());
            }
            std::sort(files.begin(), files.end());
        } else {
            files.push_back(argv[i]);
        }
        for (const auto& file : files) {
            Replay(file);
            ++count;
        }
    }
    printf("%zu inputs replayed\n", count);
    return count == 0 ? 1 : 0;
}

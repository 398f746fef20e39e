#include "common/AtomicFile.h"

#include "common/UniqueFd.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace GenICam {
namespace Client {

namespace {

std::string DirectoryOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

bool WriteAll(int fd, const std::string& content, int* error)
{
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = ::write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            *error = errno;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

bool Fail(int* error, int code)
{
    *error = code;
    return false;
}

} // namespace

bool WriteFileAtomically(const std::string& path, const std::string& content, mode_t mode, int* error)
{
    std::vector<char> temp(path.begin(), path.end());
    const std::string suffix = ".XXXXXX";
    temp.insert(temp.end(), suffix.begin(), suffix.end());
    temp.push_back('\0');
    CUniqueFd fd(::mkostemp(temp.data(), O_CLOEXEC));
    if (!fd.IsOpen()) {
        return Fail(error, errno);
    }
    // mkostemp makes the file 0600; a textfile collector running as another user must read it.
    bool ok = ::fchmod(fd.Get(), mode) == 0 || Fail(error, errno);
    ok = ok && WriteAll(fd.Get(), content, error);
    ok = ok && (::fsync(fd.Get()) == 0 || Fail(error, errno));
    const int closed = ::close(fd.Release());
    ok = ok && (closed == 0 || Fail(error, errno));
    ok = ok && (::rename(temp.data(), path.c_str()) == 0 || Fail(error, errno));
    if (!ok) {
        ::unlink(temp.data());
        return false;
    }
    // The rename itself is durable only once the directory is.
    CUniqueFd dir(::open(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.IsOpen()) {
        ::fsync(dir.Get());
    }
    return true;
}

bool ReadWholeFile(const std::string& path, std::string* content, int* error)
{
    CUniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.IsOpen()) {
        return Fail(error, errno);
    }
    content->clear();
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd.Get(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return Fail(error, errno);
        }
        if (n == 0) {
            return true;
        }
        content->append(buffer, static_cast<size_t>(n));
    }
}

} // namespace Client
} // namespace GenICam

#pragma once

#include <unistd.h>

namespace GenICam {
namespace Client {

// Owns one descriptor: closed once, by whoever holds it last; moves, never copies.
class CUniqueFd {
public:
    CUniqueFd() = default;
    explicit CUniqueFd(int fd) : m_nFd(fd) {}
    ~CUniqueFd() { Reset(); }
    CUniqueFd(CUniqueFd&& other) noexcept : m_nFd(other.Release()) {}
    CUniqueFd& operator=(CUniqueFd&& other) noexcept
    {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    CUniqueFd(const CUniqueFd&) = delete;
    CUniqueFd& operator=(const CUniqueFd&) = delete;

    int Get() const { return m_nFd; }
    bool IsOpen() const { return m_nFd >= 0; }
    int Release()
    {
        const int fd = m_nFd;
        m_nFd = -1;
        return fd;
    }
    void Reset(int fd = -1)
    {
        if (m_nFd >= 0) {
            ::close(m_nFd);
        }
        m_nFd = fd;
    }

private:
    int m_nFd = -1;
};

} // namespace Client
} // namespace GenICam

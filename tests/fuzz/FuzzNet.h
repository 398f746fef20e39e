#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

// Shared pieces of the fuzz harnesses: a private network namespace, the input format and the
// sockets through which fuzzed datagrams reach the code under test.
// A violated property is a finding: report it and abort so the fuzzer keeps the input.
#define FUZZ_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "%s:%d: property violated: %s\n", __FILE__, __LINE__, #condition);     \
            abort();                                                                               \
        }                                                                                          \
    } while (0)

namespace aicfuzz {

const uint32_t kLoopback = 0x7F000001;  // 127.0.0.1, the "interface" address in the harnesses
const uint32_t kLoopback2 = 0x7F000002; // 127.0.0.2, a device address on the same loopback
const uint32_t kBroadcast = 0xFFFFFFFF;

// Moves the process into a fresh network namespace with loopback up, once; nothing sent by a
// harness can leave it. Aborts when that is impossible (it needs root).
void EnterPrivateNetwork();

// Runs a shell command inside the private namespace; aborts if it fails.
void Sh(const char* command);

// Reads the fuzz input front to back; past the end every read yields zeros.
class ByteReader {
public:
    ByteReader(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}
    uint8_t Byte();
    uint16_t Word();
    std::vector<uint8_t> Bytes(size_t count);
    std::vector<uint8_t> Rest() { return Bytes(m_size); }
    bool Empty() const { return m_size == 0; }

private:
    const uint8_t* m_data;
    size_t m_size;
};

// One datagram a fake peer sends: its bytes and harness flags that say how to deliver it.
struct Datagram {
    std::vector<uint8_t> bytes;
    uint8_t flags = 0;
};

// The rest of the input as datagrams: a 16-bit length (taken modulo maxSize + 1), a flags byte,
// then that many bytes.
std::vector<Datagram> ReadDatagrams(ByteReader& input, size_t maxCount, size_t maxSize);

// Writes a request id (network order) into the id field of a GVCP header, when there is one.
void PatchReqId(std::vector<uint8_t>& bytes, uint16_t networkOrderId);

// A UDP socket of the harness, bound with address reuse like the tool's own endpoints.
class UdpSocket {
public:
    UdpSocket(uint32_t ip, uint16_t port);
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    void SendTo(const std::vector<uint8_t>& bytes, uint32_t ip, uint16_t port);
    // Waits up to timeoutMs for one datagram; false when none came.
    bool Receive(std::vector<uint8_t>& bytes, int timeoutMs);
    void Drain();

private:
    int m_fd;
};

// Sends each datagram to port at destination(flags), carrying the request id where its flags
// have idFlag set.
void SendAnswers(UdpSocket& from, std::vector<Datagram> datagrams, uint16_t networkOrderId, uint8_t idFlag,
                 uint16_t port, const std::function<uint32_t(uint8_t)>& destination);

// A thread that runs one posted job at a time, so a fake peer can answer while the code under
// test blocks in its receive.
class Worker {
public:
    Worker();
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void Post(std::function<void()> job);
    // Returns once the posted job has finished.
    void Wait();

private:
    void __Run();

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::function<void()> m_job;
    bool m_busy = false;
    bool m_stop = false;
    std::thread m_thread;
};

} // namespace aicfuzz

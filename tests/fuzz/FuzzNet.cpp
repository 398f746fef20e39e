#include "FuzzNet.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

namespace aicfuzz {

void EnterPrivateNetwork()
{
    static const bool entered = [] {
        if (unshare(CLONE_NEWNET) != 0) {
            perror("unshare(CLONE_NEWNET): the harness needs root");
            abort();
        }
        Sh("ip link set lo up");
        return true;
    }();
    (void)entered;
}

void Sh(const char* command)
{
    if (system(command) != 0) {
        fprintf(stderr, "harness set-up failed: %s\n", command);
        abort();
    }
}

uint8_t ByteReader::Byte()
{
    if (m_size == 0) {
        return 0;
    }
    --m_size;
    return *m_data++;
}

uint16_t ByteReader::Word()
{
    const uint16_t high = Byte();
    return static_cast<uint16_t>(high << 8 | Byte());
}

std::vector<uint8_t> ByteReader::Bytes(size_t count)
{
    const size_t taken = count < m_size ? count : m_size;
    std::vector<uint8_t> bytes(m_data, m_data + taken);
    m_data += taken;
    m_size -= taken;
    return bytes;
}

std::vector<Datagram> ReadDatagrams(ByteReader& input, size_t maxCount, size_t maxSize)
{
    std::vector<Datagram> datagrams;
    while (!input.Empty() && datagrams.size() < maxCount) {
        Datagram datagram;
        const size_t length = input.Word() % (maxSize + 1);
        datagram.flags = input.Byte();
        datagram.bytes = input.Bytes(length);
        datagrams.push_back(datagram);
    }
    return datagrams;
}

void PatchReqId(std::vector<uint8_t>& bytes, uint16_t networkOrderId)
{
    if (bytes.size() >= 8) {
        const uint8_t* id = reinterpret_cast<const uint8_t*>(&networkOrderId);
        bytes[6] = id[0];
        bytes[7] = id[1];
    }
}

namespace {

sockaddr_in Address(uint32_t ip, uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(ip);
    address.sin_port = htons(port);
    return address;
}

} // namespace

UdpSocket::UdpSocket(uint32_t ip, uint16_t port) : m_fd(socket(AF_INET, SOCK_DGRAM, 0))
{
    const int on = 1;
    const sockaddr_in address = Address(ip, port);
    if (m_fd < 0 || setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
        setsockopt(m_fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on)) != 0 ||
        bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        perror("harness socket");
        abort();
    }
}

UdpSocket::~UdpSocket()
{
    close(m_fd);
}

void UdpSocket::SendTo(const std::vector<uint8_t>& bytes, uint32_t ip, uint16_t port)
{
    const sockaddr_in address = Address(ip, port);
    if (sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0) {
        perror("harness send");
        abort();
    }
}

bool UdpSocket::Receive(std::vector<uint8_t>& bytes, int timeoutMs)
{
    pollfd ready = {m_fd, POLLIN, 0};
    if (poll(&ready, 1, timeoutMs) != 1) {
        return false;
    }
    bytes.resize(65536);
    const ssize_t count = recv(m_fd, bytes.data(), bytes.size(), 0);
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return count >= 0;
}

void UdpSocket::Drain()
{
    std::vector<uint8_t> ignored;
    while (Receive(ignored, 0)) {
    }
}

void SendAnswers(UdpSocket& from, std::vector<Datagram> datagrams, uint16_t networkOrderId, uint8_t idFlag,
                 uint16_t port, const std::function<uint32_t(uint8_t)>& destination)
{
    for (Datagram& datagram : datagrams) {
        if (datagram.flags & idFlag) {
            PatchReqId(datagram.bytes, networkOrderId);
        }
        from.SendTo(datagram.bytes, destination(datagram.flags), port);
    }
}

Worker::Worker() : m_thread(&Worker::__Run, this) {}

Worker::~Worker()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void Worker::Post(std::function<void()> job)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_job = std::move(job);
    m_busy = true;
    m_changed.notify_all();
}

void Worker::Wait()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_busy; });
}

void Worker::__Run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_stop || m_busy; });
        if (m_stop) {
            return;
        }
        std::function<void()> job = std::move(m_job);
        lock.unlock();
        job();
        lock.lock();
        m_busy = false;
        m_changed.notify_all();
    }
}

} // namespace aicfuzz

#include "support/Responder.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <poll.h>
#include <sched.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace aictest {

namespace {

sockaddr_in MakeAddress(uint32_t ip, uint16_t port)
{
    sockaddr_in address;
    memset(&address, 0, sizeof(address));
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(ip);
    return address;
}

int OpenSocket(int netnsFd, uint32_t bindIp, uint16_t port)
{
    if (netnsFd >= 0 && setns(netnsFd, CLONE_NEWNET) != 0) {
        throw std::runtime_error("responder: setns failed");
    }
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on));
    const sockaddr_in address = MakeAddress(bindIp, port);
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        throw std::runtime_error("responder: cannot bind port " + std::to_string(port));
    }
    return fd;
}

void PutText(std::vector<uint8_t>& bytes, size_t offset, size_t size, const std::string& text)
{
    memcpy(bytes.data() + offset, text.data(), std::min(size, text.size()));
}

} // namespace

int64_t NowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

uint16_t Datagram::Command() const
{
    return bytes.size() >= 8 ? GetBe16(bytes, 2) : 0;
}

uint16_t Datagram::ReqId() const
{
    return bytes.size() >= 8 ? GetBe16(bytes, 6) : 0;
}

Responder::Responder(Handler handler, int netnsFd, uint32_t bindIp, uint16_t port) : m_handler(std::move(handler))
{
    std::promise<void> ready;
    std::future<void> bound = ready.get_future();
    m_thread = std::thread([this, &ready, netnsFd, bindIp, port] {
        try {
            m_fd = OpenSocket(netnsFd, bindIp, port);
        } catch (...) {
            ready.set_exception(std::current_exception());
            return;
        }
        ready.set_value();
        __Serve();
    });
    try {
        bound.get();
    } catch (...) {
        m_thread.join();
        throw;
    }
}

Responder::~Responder()
{
    m_stop = true;
    m_thread.join();
    close(m_fd);
}

void Responder::__Serve()
{
    std::vector<uint8_t> buffer(65536);
    while (!m_stop) {
        pollfd entry{m_fd, POLLIN, 0};
        if (poll(&entry, 1, 20) <= 0) {
            continue;
        }
        sockaddr_in source;
        socklen_t length = sizeof(source);
        const ssize_t n =
            recvfrom(m_fd, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&source), &length);
        if (n < 0) {
            continue;
        }
        Datagram request;
        request.bytes.assign(buffer.begin(), buffer.begin() + n);
        request.srcIp = ntohl(source.sin_addr.s_addr);
        request.srcPort = ntohs(source.sin_port);
        request.atMs = NowMs();
        {
            std::lock_guard<std::mutex> guard(m_lock);
            m_received.push_back(request);
        }
        __Answer(request);
    }
}

void Responder::__Answer(const Datagram& request)
{
    for (const Reply& reply : m_handler(request)) {
        if (reply.delayMs > 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(reply.delayMs));
        }
        const sockaddr_in to = MakeAddress(reply.toIp != 0 ? reply.toIp : request.srcIp,
                                           reply.toPort != 0 ? reply.toPort : request.srcPort);
        sendto(m_fd, reply.bytes.data(), reply.bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to));
    }
}

std::vector<Datagram> Responder::Received() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_received;
}

bool Responder::WaitForCount(size_t count, unsigned timeoutMs) const
{
    const int64_t end = NowMs() + timeoutMs;
    while (Received().size() < count) {
        if (NowMs() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void PutBe16(std::vector<uint8_t>& bytes, size_t offset, uint16_t value)
{
    bytes.at(offset) = static_cast<uint8_t>(value >> 8);
    bytes.at(offset + 1) = static_cast<uint8_t>(value);
}

void PutBe32(std::vector<uint8_t>& bytes, size_t offset, uint32_t value)
{
    PutBe16(bytes, offset, static_cast<uint16_t>(value >> 16));
    PutBe16(bytes, offset + 2, static_cast<uint16_t>(value));
}

uint16_t GetBe16(const std::vector<uint8_t>& bytes, size_t offset)
{
    return static_cast<uint16_t>(bytes.at(offset) << 8 | bytes.at(offset + 1));
}

uint32_t GetBe32(const std::vector<uint8_t>& bytes, size_t offset)
{
    return static_cast<uint32_t>(GetBe16(bytes, offset)) << 16 | GetBe16(bytes, offset + 2);
}

std::vector<uint8_t> MakeAck(uint16_t status, uint16_t ack, uint16_t ackId, const std::vector<uint8_t>& payload)
{
    std::vector<uint8_t> bytes(8);
    PutBe16(bytes, 0, status);
    PutBe16(bytes, 2, ack);
    PutBe16(bytes, 4, static_cast<uint16_t>(payload.size()));
    PutBe16(bytes, 6, ackId);
    bytes.insert(bytes.end(), payload.begin(), payload.end());
    return bytes;
}

std::vector<uint8_t> MakeCommand(uint8_t flags, uint16_t command, uint16_t reqId, const std::vector<uint8_t>& payload)
{
    // The command header differs from the acknowledge header only in its first word.
    return MakeAck(static_cast<uint16_t>(0x4200 | flags), command, reqId, payload);
}

std::vector<uint8_t> MakeDiscoveryAck(const CameraModel& model, uint16_t ackId)
{
    // Offsets written out by hand so a layout slip in the product's structs cannot hide here.
    std::vector<uint8_t> payload(248);
    PutBe16(payload, 0, 2); // version 2.0
    PutBe32(payload, 4, 0x80000001);
    memcpy(payload.data() + 10, model.mac.data(), 6);
    PutBe32(payload, 16, 0x80000007);
    PutBe32(payload, 20, 0x80000005);
    PutBe32(payload, 36, model.ip);
    PutBe32(payload, 52, model.mask);
    PutBe32(payload, 68, model.gateway);
    PutText(payload, 72, 32, model.manufacturer);
    PutText(payload, 104, 32, model.model);
    PutText(payload, 136, 32, model.version);
    payload[168] = model.featureByte;
    PutText(payload, 216, 16, model.serial);
    PutText(payload, 232, 16, model.userName);
    return MakeAck(0, 0x0003, ackId, payload);
}

namespace {

std::vector<uint8_t> ReadRegPayload(CameraModel& model, const Datagram& request)
{
    std::vector<uint8_t> values;
    for (size_t at = 8; at + 4 <= request.bytes.size(); at += 4) {
        values.resize(values.size() + 4);
        PutBe32(values, values.size() - 4, model.registers[GetBe32(request.bytes, at)]);
    }
    return values;
}

std::vector<uint8_t> IndexPayload(size_t index)
{
    std::vector<uint8_t> payload(4);
    PutBe16(payload, 2, static_cast<uint16_t>(index));
    return payload;
}

std::vector<uint8_t> WriteRegPayload(CameraModel& model, const Datagram& request)
{
    size_t written = 0;
    for (size_t at = 8; at + 8 <= request.bytes.size(); at += 8, ++written) {
        model.registers[GetBe32(request.bytes, at)] = GetBe32(request.bytes, at + 4);
    }
    return IndexPayload(written);
}

std::vector<uint8_t> ReadMemPayload(CameraModel& model, const Datagram& request)
{
    const uint32_t address = GetBe32(request.bytes, 8);
    const uint16_t count = GetBe16(request.bytes, 14);
    std::vector<uint8_t> payload(4 + count);
    PutBe32(payload, 0, address);
    for (size_t i = 0; i < count && address + i < model.memory.size(); ++i) {
        payload[4 + i] = model.memory[address + i];
    }
    return payload;
}

std::vector<uint8_t> WriteMemPayload(CameraModel& model, const Datagram& request)
{
    const uint32_t address = GetBe32(request.bytes, 8);
    const size_t count = request.bytes.size() - 12;
    if (model.memory.size() < address + count) {
        model.memory.resize(address + count);
    }
    memcpy(model.memory.data() + address, request.bytes.data() + 12, count);
    return IndexPayload(count);
}

} // namespace

Handler Camera(CameraModel model)
{
    auto state = std::make_shared<CameraModel>(std::move(model));
    return [state](const Datagram& request) -> std::vector<Reply> {
        CameraModel& camera = *state;
        const uint16_t id = request.ReqId();
        switch (request.Command()) {
        case 0x0002:
            return {{MakeDiscoveryAck(camera, id), 0, camera.broadcastDiscoveryAck ? 0xFFFFFFFFu : 0u, 0}};
        case 0x0080:
            return {{MakeAck(camera.status, 0x0081, id, ReadRegPayload(camera, request)), 0, 0, 0}};
        case 0x0082:
            return {{MakeAck(camera.status, 0x0083, id, WriteRegPayload(camera, request)), 0, 0, 0}};
        case 0x0084:
            return {{MakeAck(camera.status, 0x0085, id, ReadMemPayload(camera, request)), 0, 0, 0}};
        case 0x0086:
            return {{MakeAck(camera.status, 0x0087, id, WriteMemPayload(camera, request)), 0, 0, 0}};
        default:
            return {};
        }
    };
}

Handler EditReplies(Handler inner, ReplyEdit edit)
{
    return [inner, edit](const Datagram& request) {
        std::vector<Reply> replies = inner(request);
        edit(replies, request);
        return replies;
    };
}

} // namespace aictest

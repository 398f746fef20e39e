#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace aictest {

// Milliseconds of the monotonic clock, the time base of Datagram::atMs.
int64_t NowMs();

// One datagram the responder received, as it came off the wire.
struct Datagram {
    std::vector<uint8_t> bytes;
    uint32_t srcIp = 0; // host order
    uint16_t srcPort = 0;
    int64_t atMs = 0; // monotonic clock

    // GVCP command header fields (0 when the datagram is too short).
    uint16_t Command() const;
    uint16_t ReqId() const;
};

// One datagram to send back, after delayMs.
struct Reply {
    std::vector<uint8_t> bytes;
    unsigned delayMs = 0;
    uint32_t toIp = 0;   // 0: the sender; 0xFFFFFFFF: limited broadcast
    uint16_t toPort = 0; // 0: the sender's port
};

using Handler = std::function<std::vector<Reply>(const Datagram&)>;

// A UDP peer for protocol tests: records every datagram it receives and answers with whatever the
// handler returns (raw bytes, so malformed answers are as easy as good ones). Runs on its own
// thread, in the namespace given by descriptor (PeerLink::PeerNamespace()) or else in the
// creator's. Example:
//
//     PeerLink link;
//     Responder camera(Camera(CameraModel{}), link.PeerNamespace());
//     ... exercise the code under test against PeerLink::kPeerIp ...
//     EXPECT_EQ(camera.Received().at(0).Command(), 0x0080);
class Responder {
public:
    explicit Responder(Handler handler, int netnsFd = -1, uint32_t bindIp = 0, uint16_t port = 3956);
    ~Responder();
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;

    std::vector<Datagram> Received() const;
    // Waits until at least count datagrams have arrived; false on time-out.
    bool WaitForCount(size_t count, unsigned timeoutMs) const;

private:
    void __Serve();
    void __Answer(const Datagram& request);

    Handler m_handler;
    int m_fd = -1;
    std::atomic<bool> m_stop{false};
    mutable std::mutex m_lock;
    std::vector<Datagram> m_received;
    std::thread m_thread;
};

// Big-endian field access for building and checking packets independently of the product's structs.
void PutBe16(std::vector<uint8_t>& bytes, size_t offset, uint16_t value);
void PutBe32(std::vector<uint8_t>& bytes, size_t offset, uint32_t value);
uint16_t GetBe16(const std::vector<uint8_t>& bytes, size_t offset);
uint32_t GetBe32(const std::vector<uint8_t>& bytes, size_t offset);

// A GVCP acknowledge: status, ack code, length field = payload size, ack id, then the payload.
std::vector<uint8_t> MakeAck(uint16_t status, uint16_t ack, uint16_t ackId, const std::vector<uint8_t>& payload);
// A GVCP command: 0x42, flags, command code, length field = payload size, request id, then the payload.
std::vector<uint8_t> MakeCommand(uint8_t flags, uint16_t command, uint16_t reqId, const std::vector<uint8_t>& payload);

// What a simulated camera reports and holds.
struct CameraModel {
    std::string manufacturer = "AIC Test";
    std::string model = "AIC-CAM";
    std::string serial = "SN0001";
    std::string version = "1.0";
    std::string userName;
    std::array<uint8_t, 6> mac{{0x00, 0x11, 0x1C, 0x01, 0x02, 0x03}};
    uint32_t ip = 0x0A4D0002; // host order
    uint32_t mask = 0xFFFFFF00;
    uint32_t gateway = 0;
    uint8_t featureByte = 0;          // first manufacturer-specific byte
    uint16_t status = 0;              // status of every register/memory acknowledge
    bool broadcastDiscoveryAck = false;
    std::map<uint32_t, uint32_t> registers; // host-order values; missing read as 0
    std::vector<uint8_t> memory;            // from address 0; missing bytes read as 0
};

// The 256-byte discovery acknowledge of model answering request id ackId.
std::vector<uint8_t> MakeDiscoveryAck(const CameraModel& model, uint16_t ackId);

// Answers DISCOVERY, READREG, WRITEREG, READMEM and WRITEMEM as a camera would; writes change its
// own copy of the model. Other commands get no answer.
Handler Camera(CameraModel model);

// Passes every answer of inner through edit first: wrong ids, cut or padded lengths, extra or
// dropped replies. E.g. EditReplies(Camera(model), [](auto& r, auto&) { r.at(0).bytes.resize(255); }).
using ReplyEdit = std::function<void(std::vector<Reply>& replies, const Datagram& request)>;
Handler EditReplies(Handler inner, ReplyEdit edit);

} // namespace aictest

#pragma once

#include <cstdint>
#include <string>

namespace aictest {

// A second network namespace joined to the test's own by a veth pair, for a peer that must sit
// across a real link (broadcasts, captures). Create it inside a NetNamespaceTest:
//
//     PeerLink link;                                  // aic0 10.77.0.1/24 here, aic1 10.77.0.2/24 there
//     Responder camera(Camera(model), link.PeerNamespace());
//
// The peer namespace is held by a descriptor and never named, so it cannot clash with parallel
// tests and vanishes with this object; the veth pair goes with it.
class PeerLink {
public:
    static constexpr const char* kHostIf = "aic0";
    static constexpr const char* kPeerIf = "aic1";
    static constexpr uint32_t kHostIp = 0x0A4D0001; // 10.77.0.1
    static constexpr uint32_t kPeerIp = 0x0A4D0002; // 10.77.0.2

    PeerLink();
    ~PeerLink();
    PeerLink(const PeerLink&) = delete;
    PeerLink& operator=(const PeerLink&) = delete;

    // Descriptor of the peer namespace, for Responder or setns().
    int PeerNamespace() const { return m_peerFd; }
    // Runs a shell command inside the peer namespace; throws if it fails.
    void InPeer(const std::string& command) const;
    // One more veth link into the peer namespace, so one responder serves several host interfaces:
    // name with hostCidr here, "p" + name with peerCidr there.
    void AddLink(const std::string& name, const std::string& hostCidr, const std::string& peerCidr) const;

private:
    std::string __PeerPath() const;
    void __WaitUntilUp(const std::string& hostIf, const std::string& peerIf) const;

    int m_peerFd;
};

// Runs a shell command in the caller's namespace; throws std::runtime_error if it fails.
void Run(const std::string& command);

} // namespace aictest

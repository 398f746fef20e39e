#pragma once

#include "support/PeerLink.h"
#include "support/Responder.h"

#include <cstdint>
#include <string>
#include <unistd.h>
#include <vector>

namespace aictest {

// A simulated camera that answers only requests coming from one host address (0: from every link).
struct PlacedCamera {
    CameraModel model;
    uint32_t onlyFrom = 0;
};

// Several cameras behind one responder: each answers a discovery; any other command is answered
// by the first camera that takes it, as a control port talks to one device.
inline Handler Cameras(const std::vector<PlacedCamera>& cameras)
{
    std::vector<std::pair<uint32_t, Handler>> handlers;
    for (const PlacedCamera& camera : cameras) {
        handlers.emplace_back(camera.onlyFrom, Camera(camera.model));
    }
    return [handlers](const Datagram& request) {
        std::vector<Reply> replies;
        for (const auto& handler : handlers) {
            if (handler.first != 0 && handler.first != request.srcIp) {
                continue;
            }
            const std::vector<Reply> own = handler.second(request);
            replies.insert(replies.end(), own.begin(), own.end());
            if (request.Command() != 0x0002 && !own.empty()) {
                break;
            }
        }
        return replies;
    };
}

// One more veth link from the test's namespace into the peer namespace of link, so one responder
// serves several host interfaces: name with hostCidr here, "p" + name with peerCidr there.
inline void AddPeerLink(const PeerLink& link, const std::string& name, const std::string& hostCidr,
                        const std::string& peerCidr)
{
    const std::string peerPath = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(link.PeerNamespace());
    Run("ip link add " + name + " type veth peer name p" + name + " netns " + peerPath);
    Run("ip addr add " + hostCidr + " dev " + name + " && ip link set " + name + " up");
    link.InPeer("ip addr add " + peerCidr + " dev p" + name + " && ip link set p" + name + " up");
    // The kernel drops what is sent before it has marked both ends up, which it does up to a second late.
    const auto waitUp = [](const std::string& ifName) {
        return "for i in $(seq 300); do ip -o link show " + ifName +
               " | grep -q \"state UP\" && exit 0; sleep 0.01; done; exit 1";
    };
    Run(waitUp(name));
    link.InPeer(waitUp("p" + name));
}

} // namespace aictest

#pragma once

#include "support/PeerLink.h"
#include "support/Responder.h"

#include <cstdint>
#include <string>
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

} // namespace aictest

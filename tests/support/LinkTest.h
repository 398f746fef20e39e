#pragma once

#include "support/NetNamespace.h"
#include "support/PeerLink.h"
#include "support/Responder.h"

#include <memory>

namespace aictest {

// A fresh namespace with a veth link to a peer namespace where the test's camera answers.
class LinkTest : public NetNamespaceTest {
protected:
    void SetUp() override
    {
        NetNamespaceTest::SetUp();
        m_link = std::make_unique<PeerLink>();
    }
    void TearDown() override
    {
        m_camera.reset();
        m_link.reset();
    }

    // Starts the peer's responder on port 3956; replaces any earlier one.
    Responder& StartCamera(Handler handler)
    {
        m_camera.reset();
        m_camera = std::make_unique<Responder>(std::move(handler), m_link->PeerNamespace());
        return *m_camera;
    }

    std::unique_ptr<PeerLink> m_link;
    std::unique_ptr<Responder> m_camera;
};

// A handler that records and never answers.
inline Handler Silent()
{
    return [](const Datagram&) { return std::vector<Reply>{}; };
}

} // namespace aictest

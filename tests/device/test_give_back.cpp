#include "common/ErrorCodes.h"
#include "common/Exception.h"
#include "device/Device.h"
#include "device/Interface.h"
#include "gvcp/GVCPCtrlPort.h"
#include "support/NetNamespace.h"
#include "support/Records.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

using namespace GenICam::Client;

namespace {

enum STEP_FAULT { ANSWER, TIME_OUT, DENY, WRONG };

// A control port whose registers live in memory; each step (op, first register, and for CCP the value)
// answers, times out, is refused with 0x8006 or reads back wrong, as the case says.
class CScriptedPort : public CGVCPCtrlPort {
public:
    CScriptedPort(const std::map<std::string, STEP_FAULT>& faults, uint32_t options, std::vector<std::string>* log)
        : CGVCPCtrlPort(0, 0, "scripted"), m_faults(faults), m_log(log)
    {
        m_regs[GVCP_REG_IP_CONFIG_OPTIONS] = options;
        m_regs[GVCP_REG_IP_CONFIG_CURRENT] = 0x4;
    }
    void ReadRegList(unsigned long* addrs, unsigned int* values, unsigned long* count) override
    {
        const STEP_FAULT fault = Step("R", addrs[0], nullptr);
        for (unsigned long i = 0; i < *count; ++i) {
            values[i] = htonl(m_regs[addrs[i]] + (fault == WRONG ? 1 : 0));
        }
    }
    void WriteRegList(unsigned long* addrs, unsigned int* values, unsigned long* count) override
    {
        Step("W", addrs[0], addrs[0] == GVCP_REG_CCP ? values : nullptr);
        for (unsigned long i = 0; i < *count; ++i) {
            m_regs[addrs[i]] = ntohl(values[i]);
        }
    }

private:
    STEP_FAULT Step(const char* op, unsigned long reg, const unsigned int* value)
    {
        char name[32];
        snprintf(name, sizeof(name), value ? "%s%04lX=%u" : "%s%04lX", op, reg, value ? ntohl(*value) : 0);
        m_log->push_back(name);
        const auto found = m_faults.find(name);
        const STEP_FAULT fault = found == m_faults.end() ? ANSWER : found->second;
        if (fault == TIME_OUT) {
            APP_THROW(GC_ERR_TIMEOUT, "Timeout !");
        }
        if (fault == DENY) {
            APP_THROW(GC_ERR_ACCESS_DENIED, "The access to the requested device is denied.");
        }
        return fault;
    }

    const std::map<std::string, STEP_FAULT>& m_faults;
    std::vector<std::string>* m_log;
    std::map<unsigned long, uint32_t> m_regs;
};

// A camera whose control port is scripted; without a persistent IP its options lack bit 0.
class CScriptedDevice : public CDevice {
public:
    CScriptedDevice(CInterface* itf, const std::map<std::string, STEP_FAULT>& faults, bool persistent)
        : CDevice(nullptr, itf, aictest::MakeRecord(aictest::CameraAt("AIC-CAM", 0x11, 0xC0A8010B))),
          m_faults(faults), m_options(persistent ? 0x7 : 0x6)
    {
    }
    using CDevice::_StorePersistentIP;
    mutable std::vector<std::string> m_log;

protected:
    CGVCPCtrlPort* _CreateCtrlPort(unsigned int) const override
    {
        return new CScriptedPort(m_faults, m_options, &m_log);
    }

private:
    const std::map<std::string, STEP_FAULT>& m_faults;
    uint32_t m_options;
};

const char kTake[] = "W0A00=2";
const char kGiveBack[] = "W0A00=0";

} // namespace

// The scripted port binds its endpoints, so it runs in a namespace of its own.
class GiveBack : public aictest::NetNamespaceTest {};

TEST_F(GiveBack, ControlIsGivenBackExactlyWhenAskedForAndNotRefused)
{
    const struct {
        const char* name;
        std::map<std::string, STEP_FAULT> faults;
        bool persistent;
        GVCP_RESULT_KIND store, giveBack;
    } cases[] = {
        {"every step answers", {}, true, GVCP_RESULT_OK, GVCP_RESULT_OK},
        {"no persistent IP: control never asked", {}, false, GVCP_RESULT_NOT_SUPPORTED, GVCP_RESULT_NOT_RUN},
        {"options unread: never asked", {{"R0010", TIME_OUT}}, true, GVCP_RESULT_NO_ANSWER, GVCP_RESULT_NOT_RUN},
        {"control refused: nothing to give back", {{kTake, DENY}}, true, GVCP_RESULT_REFUSED, GVCP_RESULT_NOT_RUN},
        {"control request lost: may hold it", {{kTake, TIME_OUT}}, true, GVCP_RESULT_NO_ANSWER, GVCP_RESULT_OK},
        {"address write lost", {{"W064C", TIME_OUT}}, true, GVCP_RESULT_NO_ANSWER, GVCP_RESULT_OK},
        {"address write refused after control", {{"W064C", DENY}}, true, GVCP_RESULT_REFUSED, GVCP_RESULT_OK},
        {"configuration read lost", {{"R0014", TIME_OUT}}, true, GVCP_RESULT_NO_ANSWER, GVCP_RESULT_OK},
        {"give-back lost", {{kGiveBack, TIME_OUT}}, true, GVCP_RESULT_OK, GVCP_RESULT_NO_ANSWER},
        {"read-back differs", {{"R064C", WRONG}}, true, GVCP_RESULT_BAD_ACK, GVCP_RESULT_OK},
    };
    CInterface itf(aictest::MakeSnapshot("eth0", 0xC0A80105, 0xFFFFFF00), nullptr);
    for (const auto& c : cases) {
        CScriptedDevice device(&itf, c.faults, c.persistent);
        const bool stored = device._StorePersistentIP(0xC0A8010B, 0xFFFFFF00, 0);
        const FORCEIP_OUTCOME& outcome = device.GetForceIPOutcome();
        EXPECT_EQ(stored, c.store == GVCP_RESULT_OK) << c.name;
        EXPECT_EQ(outcome.stStore.nKind, c.store) << c.name;
        EXPECT_EQ(outcome.stStore.nStatus, c.store == GVCP_RESULT_REFUSED ? 0x8006 : 0) << c.name;
        EXPECT_EQ(outcome.stGiveBack.nKind, c.giveBack) << c.name;
        const auto gaveBack = std::count(device.m_log.begin(), device.m_log.end(), kGiveBack);
        EXPECT_EQ(gaveBack, c.giveBack == GVCP_RESULT_NOT_RUN ? 0 : 1) << c.name;
    }
}

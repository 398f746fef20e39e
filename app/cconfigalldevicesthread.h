#pragma once

class CConfigPass;

// Runs the planner over every interface for one pass; starts no thread of its own, except that with
// conflict probes the searches of interfaces in different subnets overlap.
class CConfigAllDevicesThread {
public:
    explicit CConfigAllDevicesThread(CConfigPass* pass);
    bool ConfigAllDevicesThread();

private:
    CConfigPass* m_pPass;
};

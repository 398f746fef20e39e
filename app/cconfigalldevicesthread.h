#pragma once

// Runs the planner over every interface; starts no thread.
class CConfigAllDevicesThread {
public:
    bool ConfigAllDevicesThread();
};

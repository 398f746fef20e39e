#include "app/Driver.h"

#include <cstdio>
#include <pthread.h>
#include <string>

// Enumerate, configure, enumerate again until the cameras answer, report. Always exits 0.
int main()
{
    std::string result;
    pthread_t reupdate;
    printf("Tool version is 1.0.1906.9272\nAuto IP Configure Started!\n");
    if (!InitDeviceModule()) {
        result = "Init Module Failed! Please Retry.\n";
    } else if (!UpdateDeviceList()) {
        result = "Enum Device Failed! Please Retry.\n";
    } else {
        ConfigAllDevices();
        if (pthread_create(&reupdate, nullptr, OnThreadReUpdateDeviceList, nullptr) != 0) {
            result = "Unexpected Error! Please Retry.\n";
        } else {
            pthread_join(reupdate, nullptr);
            result = "Auto IP Configure Finished!\n";
            PrintInterfaceInfo();
        }
    }
    UnInitDeviceModule();
    // Printed after the report on purpose: it is the last line of output.
    printf("%s", result.c_str());
    return 0;
}

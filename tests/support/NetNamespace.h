#pragma once

#include <gtest/gtest.h>
#include <string>

namespace aictest {

// Moves the test's thread into a fresh, empty network namespace for each test, so nothing a
// test sends can leave it. Threads and commands started by the test inherit the namespace.
class NetNamespaceTest : public ::testing::Test {
protected:
    void SetUp() override;

    // Runs a shell command (usually `ip ...`) inside the namespace; fails the test if it fails.
    static void Sh(const std::string& command);
};

// Runs a shell command and returns its standard output.
std::string Capture(const std::string& command);

// The MAC of an interface in the caller's namespace, in the records' dashed upper-case form.
std::string MacOf(const std::string& interface);

} // namespace aictest

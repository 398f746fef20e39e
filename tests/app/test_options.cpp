#include "app/Options.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct PARSED {
    bool ok;
    std::string problem;
    RUN_OPTIONS options;
};

PARSED Parse(std::vector<std::string> words)
{
    words.insert(words.begin(), "autoipconfig");
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    PARSED parsed;
    parsed.ok = ParseOptions(static_cast<int>(words.size()), argv.data(), &parsed.options, &parsed.problem);
    return parsed;
}

// The flags as letters, in a fixed order: n dry run, j json, h help, V version, s standard,
// c check conflicts, v verbose, x exit code, k check config; then the files and the interfaces.
std::string Flags(const RUN_OPTIONS& o)
{
    std::string flags;
    flags += o.bDryRun ? "n" : "";
    flags += o.bJson ? "j" : "";
    flags += o.bHelp ? "h" : "";
    flags += o.bVersion ? "V" : "";
    flags += o.bStandard ? "s" : "";
    flags += o.bCheckConflicts ? "c" : "";
    flags += o.bVerbose ? "v" : "";
    flags += o.bExitCode ? "x" : "";
    flags += o.strMetricsFile.empty() ? "" : " metrics " + o.strMetricsFile;
    flags += o.bCheckConfig ? "k" : "";
    flags += o.strConfigFile.empty() ? "" : " config=" + o.strConfigFile;
    for (const std::string& name : o.vecInterface) {
        flags += " " + name;
    }
    return flags;
}

} // namespace

TEST(Options, ParsesEveryFormAndNamesWhatIsWrong)
{
    const struct {
        std::vector<std::string> words;
        std::string flags;    // when parsing succeeds
        std::string problem;  // when it fails
    } cases[] = {
        {{}, "", ""},
        {{"-n", "--json", "-s", "-c", "-v"}, "njscv", ""},
        {{"--dry-run", "--standard", "--check-conflicts", "--verbose"}, "nscv", ""},
        {{"-nsc"}, "nsc", ""},
        {{"-h"}, "h", ""},
        {{"--version"}, "V", ""},
        {{"-i", "eth0", "--interface=eth1", "-ieth2", "--interface", "eth3"}, " eth0 eth1 eth2 eth3", ""},
        {{"--loud"}, "", "unknown option '--loud'"},
        {{"-x"}, "", "unknown option '-x'"},
        {{"-nx"}, "", "unknown option '-x'"},
        {{"-i"}, "", "option '-i' needs a value"},
        {{"--interface"}, "", "option '--interface' needs a value"},
        {{"-i", ""}, "", "empty interface name"},
        {{"--json=yes"}, "", "option '--json' takes no value"},
        {{"--dry-run=1"}, "", "option '--dry-run' takes no value"},
        {{"-n", "eth0"}, "", "unexpected argument 'eth0'"},
        {{"--exit-code", "--metrics-file", "/run/a.prom"}, "x metrics /run/a.prom", ""},
        {{"--exit-code=1"}, "", "option '--exit-code' takes no value"},
        {{"--metrics-file="}, "", "empty metrics file name"},
        {{"--metrics-file"}, "", "option '--metrics-file' needs a value"},
        {{"--check-config", "--config", "a.toml"}, "k config=a.toml", ""},
        {{"--config"}, "", "option '--config' needs a value"},
        {{"--config="}, "", "empty configuration file name"},
        {{"--check-config=x"}, "", "option '--check-config' takes no value"},
    };
    for (const auto& c : cases) {
        const PARSED parsed = Parse(c.words);
        const std::string line = c.words.empty() ? "(none)" : c.words.front();
        EXPECT_EQ(parsed.ok, c.problem.empty()) << line;
        EXPECT_EQ(parsed.problem, c.problem) << line;
        if (parsed.ok) {
            EXPECT_EQ(Flags(parsed.options), c.flags) << line;
        }
    }
}

// This test is built with a package version of its own: the report's texts must not follow it.
TEST(Options, ReportKeepsItsVersionWhateverThePackageIsCalled)
{
    EXPECT_EQ(BannerText(), "Tool version is 1.0.1906.9272\nAuto IP Configure Started!\n");
    EXPECT_STREQ(kReportVersion, "1.0.1906.9272");
    EXPECT_EQ(VersionText(), "autoipconfig 0.0.0-test\n");
}

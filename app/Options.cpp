#include "app/Options.h"

#include "device/InterfaceSurvey.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

using GenICam::Client::INTERFACE_VERDICT;
using GenICam::Client::SurveyInterfaces;

namespace {

const int kJsonOption = 0x100;
const int kIntervalOption = 0x101;
const int kExitCodeOption = 0x110;
const int kMetricsFileOption = 0x111;
const int kConfigOption = 0x102;
const int kCheckConfigOption = 0x103;
const double kIntervalMinS = 0.2;
const double kIntervalMaxS = 3600;

const option kLongOptions[] = {
    {"dry-run", no_argument, nullptr, 'n'},
    {"interface", required_argument, nullptr, 'i'},
    {"json", no_argument, nullptr, kJsonOption},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {"standard", no_argument, nullptr, 's'},
    {"check-conflicts", no_argument, nullptr, 'c'},
    {"verbose", no_argument, nullptr, 'v'},
    {"watch", no_argument, nullptr, 'w'},
    {"interval", required_argument, nullptr, kIntervalOption},
    {"exit-code", no_argument, nullptr, kExitCodeOption},
    {"metrics-file", required_argument, nullptr, kMetricsFileOption},
    {"config", required_argument, nullptr, kConfigOption},
    {"check-config", no_argument, nullptr, kCheckConfigOption},
    {nullptr, 0, nullptr, 0},
};

// Names the option getopt stopped at. optind has passed the word for long options and for a missing
// value, but not for an unknown letter inside a group such as -nx: that one is named by its letter.
std::string UsageProblem(int code, char* argv[])
{
    const std::string word = argv[optind - 1];
    const std::string letter = std::string("-") + static_cast<char>(optopt);
    if (code == ':') {
        return "option '" + (word.compare(0, 2, "--") == 0 ? word : letter) + "' needs a value";
    }
    if (optopt == 0) {
        return "unknown option '" + word + "'";
    }
    if (optopt == kJsonOption || optopt == kExitCodeOption || optopt == kCheckConfigOption ||
        strchr("nhVscvw", optopt) != nullptr) {
        return "option '" + word.substr(0, word.find('=')) + "' takes no value";
    }
    return "unknown option '" + letter + "'";
}

// Seconds as a decimal number within the bounds; false for anything else (units, hex, inf, nan).
bool ParseInterval(const char* text, uint64_t* ms)
{
    if (strspn(text, "0123456789.") != strlen(text) || *text == '\0') {
        return false;
    }
    char* end = nullptr;
    const double seconds = strtod(text, &end);
    if (*end != '\0' || !(seconds >= kIntervalMinS && seconds <= kIntervalMaxS)) {
        return false;
    }
    *ms = static_cast<uint64_t>(seconds * 1000 + 0.5);
    return true;
}

// The verdict of a named interface: a used entry of that name wins over a skipped one.
const INTERFACE_VERDICT* FindVerdict(const std::vector<INTERFACE_VERDICT>& verdicts, const std::string& name)
{
    const INTERFACE_VERDICT* found = nullptr;
    for (const INTERFACE_VERDICT& verdict : verdicts) {
        if (verdict.stEntry.strName == name && (found == nullptr || verdict.bUsed)) {
            found = &verdict;
        }
    }
    return found;
}

} // namespace

bool ParseOptions(int argc, char* argv[], RUN_OPTIONS* options, std::string* problem)
{
    opterr = 0;  // the messages are ours, without the program's path
    optind = 0;  // 0, not 1: glibc then also forgets a half-read group such as -nsc
    int code = 0;
    // The leading ':' tells a missing value apart from an unknown option.
    bool interval = false;
    while ((code = getopt_long(argc, argv, ":ni:hVscvw", kLongOptions, nullptr)) != -1) {
        switch (code) {
        case 'n':
            options->bDryRun = true;
            break;
        case 'i':
            if (*optarg == '\0') {
                *problem = "empty interface name";
                return false;
            }
            options->vecInterface.push_back(optarg);
            break;
        case kJsonOption:
            options->bJson = true;
            break;
        case 'h':
            options->bHelp = true;
            break;
        case 'V':
            options->bVersion = true;
            break;
        case 's':
            options->bStandard = true;
            break;
        case 'c':
            options->bCheckConflicts = true;
            break;
        case 'v':
            options->bVerbose = true;
            break;
        case 'w':
            options->bWatch = true;
            break;
        case kIntervalOption:
            if (!ParseInterval(optarg, &options->nIntervalMs)) {
                *problem = "invalid interval '" + std::string(optarg) + "': seconds from 0.2 to 3600";
                return false;
            }
            interval = true;
            break;
        case kExitCodeOption:
            options->bExitCode = true;
            break;
        case kMetricsFileOption:
            if (*optarg == '\0') {
                *problem = "empty metrics file name";
                return false;
            }
            options->strMetricsFile = optarg;
            break;
        case kConfigOption:
            if (*optarg == '\0') {
                *problem = "empty configuration file name";
                return false;
            }
            options->strConfigFile = optarg;
            break;
        case kCheckConfigOption:
            options->bCheckConfig = true;
            break;
        default:
            *problem = UsageProblem(code, argv);
            return false;
        }
    }
    if (optind < argc) {
        *problem = "unexpected argument '" + std::string(argv[optind]) + "'";
        return false;
    }
    if (interval && !options->bWatch) {
        *problem = "option '--interval' goes with '--watch'";
        return false;
    }
    return true;
}

std::string FindInterfaceProblem(const std::vector<std::string>& names)
{
    if (names.empty()) {
        return std::string();
    }
    const std::vector<INTERFACE_VERDICT> verdicts = SurveyInterfaces(names);
    for (const std::string& name : names) {
        const INTERFACE_VERDICT* verdict = FindVerdict(verdicts, name);
        if (verdict == nullptr) {
            return "no interface named '" + name + "'";
        }
        if (!verdict->bUsed) {
            return "interface '" + name + "' is not used: " + verdict->strReason;
        }
    }
    return std::string();
}

void PrintHelp()
{
    printf("Usage: autoipconfig [OPTION]...\n"
           "Finds GigE Vision cameras and re-addresses those outside their interface's subnet; needs root or CAP_NET_RAW; man 8 autoipconfig\n"
           "  -n, --dry-run          discover and plan, but send no force-IP; show the plan\n"
           "  -i, --interface NAME   work on this interface only (repeat for several)\n"
           "      --json             print the report as one JSON document\n"
           "  -s, --standard         move cameras with standard GigE Vision commands only and\n"
           "                         store the new address in them (cameras of any maker)\n"
           "  -c, --check-conflicts  probe candidate addresses as RFC 5227 does, all at once\n"
           "  -h, --help             print this help and exit\n"
           "  -V, --version          print the version and exit\n"
           "  -v, --verbose          say on standard error what the run sees and decides, and why\n"
           "  -w, --watch            keep running after the report: move cameras that come or\n"
           "                         change, one event line each, until SIGTERM or SIGINT\n"
           "      --interval SECONDS seconds between watch passes, 0.2 to 3600 (default 10)\n"
           "      --config FILE      read the address plan from FILE only, not from\n"
           "                         /etc/autoipconfig/autoipconfig.toml and conf.d/*.toml\n"
           "      --check-config     check the address plan, print it per interface and exit\n"
           "                         (0, or 78 on errors); sends nothing\n"
           "      --metrics-file FILE\n"
           "                         write Prometheus metrics to FILE after every pass, replaced\n"
           "                         atomically (node_exporter's textfile collector reads it)\n"
           "      --exit-code        exit 1 when a camera is left unreachable, 3 when the run\n"
           "                         cannot finish; 0 only when every camera ends reachable\n"
           "Exit status: 0 done, 2 wrong command line, 78 bad configuration file;\n"
           "with --exit-code also 1 and 3 as above.\n");
}

std::string BannerText()
{
    return std::string("Tool version is ") + kReportVersion + "\nAuto IP Configure Started!\n";
}

std::string VersionText()
{
    return "autoipconfig " AIC_VERSION "\n";
}

void PrintVersion()
{
    printf("%s", VersionText().c_str());
}

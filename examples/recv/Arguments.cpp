#include "Arguments.h"

#include <getopt.h>
#include <iniparser.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Board.h"
#include "Output.h"
#include "VelaZceUtils.h"

namespace {

const int usageError = 2;

bool ReadNumber(const char* option, const char* text, long& value) {
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < 0 || value > INT_MAX) {
        std::fprintf(stderr, "zce-recv: %s: '%s' is not a number from 0 to %d\n", option, text,
                     INT_MAX);
        return false;
    }
    return true;
}

void PrintUsage() {
    Print(
        "usage: zce-recv CONFIG [--seconds N] [--print N] [--own-loop] [--nap US] [--names FILE]\n"
        "                [--end-with-board]\n"
        "Receives one DMA channel and tells what comes.\n"
        "  CONFIG        the INI file; its config:device names board and channel\n"
        "  --seconds N   end after N seconds (0: at Ctrl-C only)\n"
        "  --print N     print the first N messages\n"
        "  --own-loop    VelaStart and a loop of VelaRecv, instead of VelaRecvStart\n"
        "  --nap US      with --own-loop: after a poll that found nothing rest for US "
        "microseconds;\n"
        "                leaves the CPU to others, and each message may come that much later\n"
        "  --names FILE  at the end, write 'messages,instrument' lines to FILE (-: standard "
        "output)\n"
        "  --end-with-board  end with status 1 when the software board has gone\n"
        "  --help        print this, and end\n"
        "  --version     print the version, and end\n");
}

// What is wrong with the argument that getopt_long has just refused.
void TellRefused(int choice, const char* argument) {
    const bool bLong = std::strncmp(argument, "--", 2) == 0;
    if (choice == ':') {
        std::fprintf(stderr, "zce-recv: %s: the value is missing\n", argument);
    } else if (bLong && optopt != 0) {
        std::fprintf(stderr, "zce-recv: %s: this option takes no value\n", argument);
    } else if (bLong) {
        std::fprintf(stderr, "zce-recv: %s: no such option\n", argument);
    } else {
        std::fprintf(stderr, "zce-recv: -%c: no such option\n", optopt);
    }
}

// One line on standard error says what is wrong.
bool CheckArguments(int argc, char** argv, Arguments& arguments) {
    if (arguments.napUs > 0 && !arguments.ownLoop) {
        std::fputs("zce-recv: --nap: needs --own-loop\n", stderr);
        return false;
    }
    if (arguments.endWithBoard && !CanTellBoard()) {
        std::fputs("zce-recv: --end-with-board: needs the software board's libenyx-hw-c.so.5\n",
                   stderr);
        return false;
    }
    if (optind == argc) {
        std::fputs("zce-recv: CONFIG is missing\n", stderr);
        return false;
    }
    if (argc - optind > 1) {
        std::fprintf(stderr, "zce-recv: %s: one CONFIG only\n", argv[optind + 1]);
        return false;
    }
    arguments.config = argv[optind];
    return true;
}

}  // namespace

int ReadArguments(int argc, char** argv, Arguments& arguments) {
    const option options[] = {{"seconds", required_argument, nullptr, 's'},
                              {"print", required_argument, nullptr, 'p'},
                              {"own-loop", no_argument, nullptr, 'o'},
                              {"nap", required_argument, nullptr, 'r'},
                              {"names", required_argument, nullptr, 'n'},
                              {"end-with-board", no_argument, nullptr, 'b'},
                              {"help", no_argument, nullptr, 'h'},
                              {"version", no_argument, nullptr, 'v'},
                              {nullptr, 0, nullptr, 0}};
    opterr = 0;
    for (int choice = 0; (choice = getopt_long(argc, argv, ":h", options, nullptr)) != -1;) {
        bool bGood = true;
        switch (choice) {
            case 's':
                bGood = ReadNumber("--seconds", optarg, arguments.seconds);
                break;
            case 'p':
                bGood = ReadNumber("--print", optarg, arguments.print);
                break;
            case 'o':
                arguments.ownLoop = true;
                break;
            case 'r':
                bGood = ReadNumber("--nap", optarg, arguments.napUs);
                break;
            case 'n':
                arguments.namesFile = optarg;
                break;
            case 'b':
                arguments.endWithBoard = true;
                break;
            case 'h':
                PrintUsage();
                return -1;
            case 'v':
                Print("zce-recv %s\n", GetUpDmaLibVersion());
                return -1;
            default:
                TellRefused(choice, argv[optind - 1]);
                bGood = false;
                break;
        }
        if (!bGood) {
            return usageError;
        }
    }
    return CheckArguments(argc, argv, arguments) ? 0 : usageError;
}

long ConfiguredChannel(const std::string& config) {
    if (access(config.c_str(), R_OK) != 0) {
        return -1;
    }
    dictionary* ini = iniparser_load(config.c_str());
    if (ini == nullptr) {
        return -1;
    }
    const char* device = iniparser_getstring(ini, "config:device", "");
    const char* colon = std::strchr(device, ':');
    const long lChannel = colon == nullptr ? -1 : std::strtol(colon + 1, nullptr, 10);
    iniparser_freedict(ini);
    return lChannel;
}

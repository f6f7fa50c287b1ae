// tactora-doctor: the self-test a user runs over SSH on the phone. It checks backboardd's half
// itself (a sync over the injection port, its dispatch hook), asks SpringBoard's half for the
// checks that must run inside SpringBoard (capture, template, store, Activator, ...) and, when
// asked, for a tap's round trip. One line per check; exit status 0 only when every check passed.
#import <Foundation/Foundation.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "Control/SelfTest.h"
#include "Platform/Platform.h"
#include "ios/CFMessagePorts.h"
#include "ios/IOSInstallation.h"

namespace {

constexpr const char* usage =
    "usage: tactora-doctor [--json] [--tap [X,Y]] [--timeout SECONDS]\n"
    "Checks that Tactora is loaded and works on this phone: one line per check, exit status 0\n"
    "only when all pass.\n"
    "  --json            print the checks as one JSON object\n"
    "  --tap [X,Y]       also tap once at X,Y (screen points; default 2,2, the corner of the status\n"
    "                    bar, where a tap does nothing) and check that SpringBoard sees the touch\n"
    "  --timeout SECONDS how long to wait for each answer (default 2)\n";

struct Options {
    bool json = false;
    bool tap = false;
    double tapX = tactora::defaultTapX;
    double tapY = tactora::defaultTapY;
    double timeout = 2.0;
};

// False, with a message on stderr, for arguments it cannot take.
bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--json") {
            options.json = true;
        } else if (argument == "--tap") {
            options.tap = true;
            if (i + 1 < argc && argv[i + 1][0] != '-') {
                char* end = nullptr;
                options.tapX = std::strtod(argv[++i], &end);
                if (!end || *end != ',') return std::fprintf(stderr, "tactora-doctor: --tap wants X,Y\n"), false;
                const char* y = end + 1;
                options.tapY = std::strtod(y, &end);
                if (end == y || *end) return std::fprintf(stderr, "tactora-doctor: --tap wants X,Y\n"), false;
            }
        } else if (argument == "--timeout" && i + 1 < argc) {
            char* end = nullptr;
            options.timeout = std::strtod(argv[++i], &end);
            if (!end || *end || options.timeout <= 0) {
                return std::fprintf(stderr, "tactora-doctor: --timeout wants a number of seconds\n"), false;
            }
        } else if (argument == "--help" || argument == "-h") {
            std::fputs(usage, stdout);
            std::exit(0);
        } else {
            std::fprintf(stderr, "tactora-doctor: unknown argument %s\n%s", argument.c_str(), usage);
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) return 2;
    @autoreleasepool {
        static tactora::ios::CFMessagePorts ports;
        static tactora::ios::IOSInstallation installation;
        tactora::platform().messagePorts = &ports;
        tactora::platform().installation = &installation;

        tactora::SelfTestReport report = tactora::askSpringBoard(options.timeout);
        report.add(tactora::checkReceiver(options.timeout));
        report.add(tactora::checkDispatchHook(options.timeout));
        if (options.tap) report.add(tactora::askTap(options.tapX, options.tapY, options.timeout + 1.0));

        const std::string out = options.json ? report.json() : report.text();
        std::fwrite(out.data(), 1, out.size(), stdout);
        return report.exitStatus();
    }
}

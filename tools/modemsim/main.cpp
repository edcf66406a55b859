// modemsim: one process that plays the modem. Its QMI side serves QMUX on
// a unix socket or a pseudo-terminal (the vendor service 0xE3 and CTL); its
// DIAG side serves the diagnostic protocol. What it answers comes from a
// scenario.
//
//   modemsim [--qmi ENDPOINT] [--diag ENDPOINT] [--scenario FILE] [--capture FILE]
//
// SIGUSR1 resets the modem: the QMI transport drops and comes back.
// SIGTERM, SIGINT and SIGHUP end it.
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "platform/qmi_client/qmi_client.h"
#include "platform/qmi_client/transport.h"
#include "tools/modemsim/diag_side.h"
#include "tools/modemsim/lte_world.h"
#include "tools/modemsim/qmi_side.h"
#include "tools/modemsim/scenario.h"
#include "tools/modemsim/wcdma_world.h"

namespace {

constexpr const char* kDefaultDiagEndpoint = "unix:/tmp/modemsim-diag.sock";

struct Options {
    std::string qmi;
    std::string diag;
    std::string scenario;
    std::string capture;
};

void Usage(FILE* out) {
    std::fprintf(out,
                 "usage: modemsim [--qmi ENDPOINT] [--diag ENDPOINT] [--scenario FILE] "
                 "[--capture FILE]\n"
                 "  --qmi ENDPOINT    QMUX endpoint, unix:/path or pty:LINK\n"
                 "                    (default $QMI_DEVICE or %s)\n"
                 "  --diag ENDPOINT   DIAG endpoint, unix:/path or pty:LINK\n"
                 "                    (default $DIAG_DEVICE or %s)\n"
                 "  --scenario FILE   JSON scenario merged over the built-in one\n"
                 "  --capture FILE    DIAG capture (.qmdl) to replay on the DIAG side\n"
                 "  --help            this text\n"
                 "pty:LINK serves a pseudo-terminal in raw mode and points the symlink LINK\n"
                 "at it, for programs that open a device (qmicli, qmi-proxy, a DIAG serial\n"
                 "port reader).\n"
                 "SIGUSR1 resets the modem (the QMI transport drops and comes back; on a\n"
                 "pseudo-terminal, LINK goes away and then names a new one).\n",
                 kQmiDefaultDevice, kDefaultDiagEndpoint);
}

std::string EnvOr(const char* name, const char* fallback) {
    const char* value = std::getenv(name);
    return (value != nullptr && *value != '\0') ? value : fallback;
}

// 0 to run, 1 for a bad command line, 2 for --help.
int ParseOptions(int argc, char** argv, Options* options) {
    options->qmi = qmux::QmiDeviceFromEnvironment();
    options->diag = EnvOr("DIAG_DEVICE", kDefaultDiagEndpoint);
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") return 2;
        std::string* target = arg == "--qmi"        ? &options->qmi
                              : arg == "--diag"     ? &options->diag
                              : arg == "--scenario" ? &options->scenario
                              : arg == "--capture"  ? &options->capture
                                                    : nullptr;
        if (target == nullptr) {
            std::fprintf(stderr, "modemsim: unknown argument '%s'\n", arg.c_str());
            return 1;
        }
        if (i + 1 >= argc) {
            std::fprintf(stderr, "modemsim: %s needs a value\n", arg.c_str());
            return 1;
        }
        *target = argv[++i];
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    int parsed = ParseOptions(argc, argv, &options);
    if (parsed == 2) {
        Usage(stdout);
        return 0;
    }
    if (parsed != 0) {
        Usage(stderr);
        return 1;
    }
    nlohmann::json scenario;
    std::string error;
    if (!modemsim::LoadScenario(options.scenario, &scenario, &error)) {
        std::fprintf(stderr, "modemsim: %s\n", error.c_str());
        return 1;
    }

    // Signals are taken by sigwait below; every thread started after this
    // inherits the mask.
    sigset_t signals;
    sigemptyset(&signals);
    for (int s : {SIGUSR1, SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, s);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    // One WCDMA and one LTE world for both sides, so QMI and DIAG name the
    // same cells.
    auto world = std::make_shared<const modemsim::WcdmaWorld>(
        scenario.value("wcdma", nlohmann::json::object()));
    auto lte =
        std::make_shared<const modemsim::LteWorld>(scenario.value("lte", nlohmann::json::object()));
    modemsim::QmiSide qmi(options.qmi, scenario.value("qmi", nlohmann::json::object()), world, lte);
    if (!qmi.Start(&error)) {
        std::fprintf(stderr, "modemsim: %s\n", error.c_str());
        return 1;
    }

    modemsim::DiagSide diag(options.diag, options.capture,
                            scenario.value("diag", nlohmann::json::object()), world, lte);
    if (!diag.Start(&error)) {
        std::fprintf(stderr, "modemsim: %s\n", error.c_str());
        qmi.Stop();
        return 1;
    }

    std::fprintf(stderr, "modemsim: ready\n");
    for (;;) {
        int received = 0;
        if (sigwait(&signals, &received) != 0) continue;
        if (received == SIGUSR1) {
            std::fprintf(stderr, "modemsim: reset requested\n");
            qmi.Reset();
            continue;
        }
        break;
    }
#ifdef MODEMSIM_HAVE_DIAG
    diag.Stop();
#endif
    qmi.Stop();
    std::fprintf(stderr, "modemsim: stopped\n");
    return 0;
}

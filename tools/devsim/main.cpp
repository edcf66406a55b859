// devsim: the phone's other services for radio_tavora, as one PPS client of
// the broker at $PPS_SOCKET.
//
//   devsim [--scenario FILE]...
//
// Several scenario files are merged over the built-in one in their order.
// SIGHUP reloads the scenario; SIGTERM and SIGINT end it.
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "platform/pps/pps_client.h"
#include "tools/devsim/devsim.h"

namespace {

void Usage(FILE* out) {
    std::fprintf(out,
                 "usage: devsim [--scenario FILE]...\n"
                 "  --scenario FILE   JSON scenario merged over the built-in one (again\n"
                 "                    for more files, merged in their order)\n"
                 "  --help            this text\n"
                 "Plays the services radio_tavora reads or asks, through the PPS broker at\n"
                 "$PPS_SOCKET (now %s):\n"
                 "  /pps/system/nvram/deviceinfo                      HardwareID\n"
                 "  /pps/services/cds/vesta/status                    the PDNs\n"
                 "  /pps/services/networking/interfaces/<name>        addresses, name servers\n"
                 "  /pps/services/radioctrl/modem0/status_persistent  configure_rats_state\n"
                 "  /pps/services/cds/vesta/control (server)          get/set_apn_setting\n"
                 "  /pps/services/omadm/radio/control (server)        get_leaf_node\n"
                 "  /pps/services/radioctrl/modem0/control (server)   configure_rats\n"
                 "Each request is logged on standard error. SIGHUP reloads the scenario;\n"
                 "SIGTERM and SIGINT end it.\n",
                 pps_socket_path().c_str());
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> scenarios;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            Usage(stdout);
            return 0;
        }
        if (arg == "--scenario" && i + 1 < argc) {
            scenarios.push_back(argv[++i]);
            continue;
        }
        std::fprintf(stderr, "devsim: unknown argument '%s'\n", arg.c_str());
        Usage(stderr);
        return 1;
    }

    // The signals arrive as readable data in the poll loop.
    sigset_t signals;
    sigemptyset(&signals);
    for (int s : {SIGHUP, SIGTERM, SIGINT}) sigaddset(&signals, s);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    int signal_fd = signalfd(-1, &signals, SFD_CLOEXEC);
    if (signal_fd < 0) {
        std::perror("devsim: signalfd");
        return 1;
    }

    devsim::Devsim devsim(scenarios);
    std::string error;
    if (!devsim.Start(&error)) {
        std::fprintf(stderr, "devsim: %s\n", error.c_str());
        return 1;
    }
    std::fprintf(stderr, "devsim: ready\n");
    int status = devsim.Run(signal_fd);
    ::close(signal_fd);
    return status;
}

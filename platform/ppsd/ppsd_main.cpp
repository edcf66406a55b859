// ppsd: the PPS broker. Runs in the foreground until SIGTERM or SIGINT,
// then stores what changed, removes its socket and exits 0.
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/pps/pps_client.h"
#include "platform/ppsd/broker.h"

namespace {

void Usage(FILE* out) {
    std::fprintf(out,
                 "usage: ppsd [--socket PATH] [--store DIR] [--queue-cap N] [--queue-bytes N]\n"
                 "            [--quiet]\n"
                 "\n"
                 "The PPS broker: objects with attributes, ?delta, ?wait, ?server,\n"
                 "?nopersist and ?critical opens, creation modes and access checks.\n"
                 "\n"
                 "  --socket PATH   listen here (default: $PPS_SOCKET, else %s)\n"
                 "  --store DIR     keep persistent objects here (default: none; nothing\n"
                 "                  survives a restart without it)\n"
                 "  --queue-cap N   messages held for one slow handle (default 256); past\n"
                 "                  it a reader is resynchronised with the whole object\n"
                 "                  (\"#@name\"), a server's clients wait until it catches\n"
                 "                  up, a client that does not read its replies is dropped\n"
                 "  --queue-bytes N bytes held for one slow handle (default 1048576)\n"
                 "  --handshake-timeout-ms N  a connection that sends no request within\n"
                 "                  N ms is dropped (default 5000)\n"
                 "  --quiet         log nothing but errors\n"
                 "\n"
                 "Stops on SIGTERM or SIGINT (exit 0), removing its socket.\n",
                 kPpsDefaultSocket);
}

}  // namespace

int main(int argc, char** argv) {
    ppsd::BrokerOptions options;
    options.socket_path = pps_socket_path();
    bool quiet = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&](const char* name) -> const char* {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "ppsd: %s needs a value\n", name);
                std::exit(2);
            }
            return argv[++i];
        };
        if (arg == "--help" || arg == "-h") {
            Usage(stdout);
            return 0;
        } else if (arg == "--socket") {
            options.socket_path = value("--socket");
        } else if (arg == "--store") {
            options.store_dir = value("--store");
        } else if (arg == "--queue-cap") {
            char* end = nullptr;
            const char* text = value("--queue-cap");
            unsigned long cap = std::strtoul(text, &end, 10);
            if (*text == '\0' || *end != '\0' || cap == 0) {
                std::fprintf(stderr, "ppsd: --queue-cap wants a positive number, not '%s'\n", text);
                return 2;
            }
            options.queue_cap = cap;
        } else if (arg == "--handshake-timeout-ms") {
            char* end = nullptr;
            const char* text = value("--handshake-timeout-ms");
            unsigned long ms = std::strtoul(text, &end, 10);
            if (*text == '\0' || *end != '\0' || ms == 0 || ms > 600000) {
                std::fprintf(stderr, "ppsd: --handshake-timeout-ms wants 1 to 600000, not '%s'\n",
                             text);
                return 2;
            }
            options.handshake_timeout_ms = static_cast<int>(ms);
        } else if (arg == "--queue-bytes") {
            char* end = nullptr;
            const char* text = value("--queue-bytes");
            unsigned long bytes = std::strtoul(text, &end, 10);
            if (*text == '\0' || *end != '\0' || bytes == 0) {
                std::fprintf(stderr, "ppsd: --queue-bytes wants a positive number, not '%s'\n",
                             text);
                return 2;
            }
            options.queue_bytes = bytes;
        } else if (arg == "--quiet") {
            quiet = true;
        } else {
            std::fprintf(stderr, "ppsd: unknown argument '%s'\n", arg.c_str());
            Usage(stderr);
            return 2;
        }
    }
    if (!quiet)
        options.log = [](const std::string& text) {
            std::fprintf(stderr, "ppsd: %s\n", text.c_str());
        };

    // Termination signals arrive through a descriptor the loop polls.
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGTERM);
    sigaddset(&stop_signals, SIGINT);
    sigprocmask(SIG_BLOCK, &stop_signals, nullptr);
    int stop_fd = signalfd(-1, &stop_signals, SFD_CLOEXEC);
    if (stop_fd < 0) {
        std::fprintf(stderr, "ppsd: signalfd: %s\n", std::strerror(errno));
        return 1;
    }
    signal(SIGPIPE, SIG_IGN);

    ppsd::Broker broker(options);
    std::string error;
    if (broker.Start(&error) != 0) {
        std::fprintf(stderr, "ppsd: %s\n", error.c_str());
        return 1;
    }
    if (!quiet) std::fprintf(stderr, "ppsd: listening on %s\n", options.socket_path.c_str());
    broker.Run(stop_fd);
    broker.Shutdown();
    if (!quiet) std::fprintf(stderr, "ppsd: stopped\n");
    return 0;
}

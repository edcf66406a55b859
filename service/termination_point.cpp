#include "service/termination_point.h"

#include <signal.h>

#include <ctime>

sigset_t TerminationSignals() {
    sigset_t termination;
    sigemptyset(&termination);
    sigaddset(&termination, SIGHUP);
    sigaddset(&termination, SIGTERM);
    sigaddset(&termination, SIGINT);
    return termination;
}

int PollLettingTerminationIn(pollfd* fds, nfds_t count, int timeout_ms) {
    sigset_t wait_mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &wait_mask);
    sigdelset(&wait_mask, SIGHUP);
    sigdelset(&wait_mask, SIGTERM);
    sigdelset(&wait_mask, SIGINT);
    timespec timeout{timeout_ms / 1000, static_cast<long>(timeout_ms % 1000) * 1000000L};
    return ::ppoll(fds, count, timeout_ms < 0 ? nullptr : &timeout, &wait_mask);
}

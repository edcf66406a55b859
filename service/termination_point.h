// Waits that the termination signals may interrupt. The daemon keeps
// SIGHUP, SIGTERM and SIGINT blocked except while it waits with nothing
// held (Cleanup takes locks and frees memory): in the poll loop, and in the
// waits of a request or a setting that may take long (a shell tool, an
// answer of another service). A signal there runs Cleanup at once, so the
// daemon ends within a second whatever it is waiting for.
#pragma once

#include <poll.h>
#include <signal.h>

// SIGHUP, SIGTERM and SIGINT.
sigset_t TerminationSignals();

// poll, with the termination signals let in for its duration (EINTR then,
// when a signal's handler returned; Cleanup never does).
int PollLettingTerminationIn(pollfd* fds, nfds_t count, int timeout_ms);

// The poll loop of the PPSServer: the server object first, then the
// watchers in the order they were added.
#include <err.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <new>

#include "platform/pps/pps_client.h"
#include "service/pps_server.h"

namespace {

constexpr int kReadBufferSize = 1024;

void DeliverPendingTermination(const sigset_t& wait_mask) {
    sigset_t pending;
    if (::sigpending(&pending) != 0) return;
    if (!sigismember(&pending, SIGHUP) && !sigismember(&pending, SIGTERM) &&
        !sigismember(&pending, SIGINT))
        return;
    sigset_t saved;
    pthread_sigmask(SIG_SETMASK, &wait_mask, &saved);  // the handler runs here
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

}  // namespace

void PPSServer::PPSFillPollTable(struct pollfd* table, size_t count) const {
    if (count == 0) return;
    table[0] = {fd_, POLLIN, 0};
    for (size_t i = 1; i < count && i - 1 < watchers_.size(); ++i)
        table[i] = {watchers_[i - 1]->fd, POLLIN, 0};
}

int PPSServer::PPSRun() {
    const size_t count = 1 + watchers_.size();
    std::unique_ptr<pollfd[]> table(new (std::nothrow) pollfd[count]);
    if (!table) return 12;
    PPSFillPollTable(table.get(), count);
    // main blocks the termination signals when it installs Cleanup; they are
    // let in only while waiting here, where this thread holds no lock that
    // Cleanup needs (syslog's, malloc's, the snapshot store's).
    sigset_t wait_mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &wait_mask);
    sigdelset(&wait_mask, SIGHUP);
    sigdelset(&wait_mask, SIGTERM);
    sigdelset(&wait_mask, SIGINT);
    for (;;) {
        if (::ppoll(table.get(), count, nullptr, &wait_mask) >= 0) PPSRunOnce(table.get(), count);
        // ppoll lets a signal in only when it has to wait: with a descriptor
        // that stays ready it never does, so a pending one is let in here.
        DeliverPendingTermination(wait_mask);
    }
}

void PPSServer::PPSRunOnce(struct pollfd* table, size_t count) {
    if (count == 0) return;
    if (table[0].revents != 0 && PPSRead(table[0].fd) == EAGAIN) {
        // The watchers are still ready; the next poll reports them again.
        return;
    }
    for (size_t i = 1; i < count && i - 1 < watchers_.size(); ++i) {
        if (table[i].revents == 0) continue;
        const PPSFdWatcher& watcher = *watchers_[i - 1];
        watcher.callback(watcher.server, watcher.arg, table[i].fd);
    }
}

int PPSServer::PPSRead(int fd) {
    char buffer[kReadBufferSize];
    // A vanished broker reads as an error, which ends the process (status 1)
    // so that a supervisor can start it again.
    ssize_t n = pps_read(fd, buffer, sizeof buffer);
    if (n < 0) {
        if (errno == EAGAIN) return EAGAIN;
        if (errno == EBADF) err(1, "BAD pps file descriptor!");
        err(1, "read pps errno %d", errno);
    }
    if (n == 0) return 0;
    if (n == kReadBufferSize) {
        warn("read larger than buffer %d", static_cast<int>(n));
        n = kReadBufferSize - 1;  // the message may have been longer; keep what fits
    }
    buffer[n] = '\0';
    PPSProcess(buffer);
    return 0;
}

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
// Messages taken from the broker in one pass at most: the watchers are not
// kept waiting while clients keep writing.
constexpr int kMaxTakenPerPass = 256;

// One message into `buffer` (kReadBufferSize bytes), cut to fit and ended
// by a NUL: its length, or -1 with errno EAGAIN when the read would block.
ssize_t ReadMessage(int fd, char* buffer) {
    // A vanished broker reads as an error, which ends the process (status 1)
    // so that a supervisor can start it again.
    ssize_t n = pps_read(fd, buffer, kReadBufferSize);
    if (n < 0) {
        if (errno == EAGAIN) return -1;
        if (errno == EBADF) err(1, "BAD pps file descriptor!");
        err(1, "read pps errno %d", errno);
    }
    if (n == kReadBufferSize) {
        warn("read larger than buffer %d", static_cast<int>(n));
        n = kReadBufferSize - 1;  // the message may have been longer; keep what fits
    }
    buffer[n] = '\0';
    return n;
}

bool Readable(int fd) {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, 0) > 0 && (entry.revents & POLLIN) != 0;
}

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
    // With requests waiting the poll only looks (no wait), so they are served
    // while nothing else arrives.
    const timespec no_wait{};
    for (;;) {
        const timespec* wait = has_waiting_requests() ? &no_wait : nullptr;
        if (::ppoll(table.get(), count, wait, &wait_mask) >= 0) PPSRunOnce(table.get(), count);
        // ppoll lets a signal in only when it has to wait: with a descriptor
        // that stays ready it never does, so a pending one is let in here.
        DeliverPendingTermination(wait_mask);
    }
}

void PPSServer::PPSRunOnce(struct pollfd* table, size_t count) {
    if (count == 0) return;
    if (table[0].revents != 0 && PPSTakeWaiting(table[0].fd) == EAGAIN && !has_waiting_requests()) {
        // The watchers are still ready; the next poll reports them again.
        return;
    }
    // Every client's requests are taken as they come and answered in turns,
    // one per pass: a client that floods the server waits for its own
    // answers, the others get theirs after at most one of its requests.
    PPSServeNext();
    for (size_t i = 1; i < count && i - 1 < watchers_.size(); ++i) {
        if (table[i].revents == 0) continue;
        const PPSFdWatcher& watcher = *watchers_[i - 1];
        watcher.callback(watcher.server, watcher.arg, table[i].fd);
    }
}

int PPSServer::PPSRead(int fd) {
    char buffer[kReadBufferSize];
    ssize_t n = ReadMessage(fd, buffer);
    if (n < 0) return EAGAIN;
    if (n > 0) PPSProcess(buffer);
    return 0;
}

int PPSServer::PPSTakeWaiting(int fd) {
    char buffer[kReadBufferSize];
    for (int taken = 0; taken < kMaxTakenPerPass; ++taken) {
        // The first read is the one poll announced; the others only while
        // more is there (the descriptor may be a blocking one).
        if (taken > 0 && !Readable(fd)) break;
        ssize_t n = ReadMessage(fd, buffer);
        if (n < 0) return taken == 0 ? EAGAIN : 0;
        if (n == 0) break;
        QueueOrProcess(buffer);
    }
    return 0;
}

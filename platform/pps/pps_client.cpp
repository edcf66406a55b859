// Client side of the broker protocol (see pps_wire.h): one connection per
// open object, one short request/answer exchange for stat, unlink and list.
#include "platform/pps/pps_client.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include "platform/pps/pps_wire.h"

namespace {

// How long an open waits for the object's copy that the broker sends right
// after its answer (only a stalled broker makes this wait at all).
constexpr int kCopyWaitMs = 2000;

// Delta handles whose first read has not happened yet: descriptor ->
// the socket's inode, so that a descriptor closed and reused for another
// socket is not taken for the handle.
std::mutex first_reads_mutex;
std::unordered_map<int, ino_t> first_reads;

ino_t SocketInode(int fd) {
    struct stat info {};
    return ::fstat(fd, &info) == 0 ? info.st_ino : 0;
}

void NoteOpened(int fd, bool delta_copy) {
    std::lock_guard<std::mutex> lock(first_reads_mutex);
    if (delta_copy)
        first_reads[fd] = SocketInode(fd);
    else
        first_reads.erase(fd);
}

// True (once) when this is the first read of a delta handle.
bool TakeFirstRead(int fd) {
    std::lock_guard<std::mutex> lock(first_reads_mutex);
    auto found = first_reads.find(fd);
    if (found == first_reads.end()) return false;
    bool same_socket = found->second != 0 && found->second == SocketInode(fd);
    first_reads.erase(found);
    return same_socket;
}

// Receives one message into `out`, waiting up to `wait_ms`; false when none came.
bool ReceiveMessage(int fd, int wait_ms, std::string* out) {
    pollfd pfd{fd, POLLIN, 0};
    int ready;
    do {
        ready = ::poll(&pfd, 1, wait_ms);
    } while (ready < 0 && errno == EINTR);
    if (ready <= 0) return false;
    out->assign(pps_wire::kMaxRead, '\0');
    ssize_t n;
    do {
        n = ::recv(fd, out->data(), out->size(), MSG_DONTWAIT);
    } while (n < 0 && errno == EINTR);
    if (n <= 0) return false;
    out->resize(static_cast<size_t>(n));
    return true;
}

// The first read of a delta handle. The copy sent at open was taken then,
// so what the handle itself wrote since (a deletion, say) would come back
// in it; the object is asked for again as it stands now, and the messages
// before that answer, all older than it, are dropped. If the broker does
// not answer in time, the copy from the open is what the read returns.
ssize_t ReadFirstCopy(int fd, void* buffer, size_t size) {
    std::string opened;
    bool have_opened = ReceiveMessage(fd, 0, &opened);
    const size_t marker = std::strlen(pps_wire::kCopyNow);
    std::string message;
    bool asked =
        ::send(fd, pps_wire::kCopyNow, marker, MSG_NOSIGNAL) == static_cast<ssize_t>(marker);
    const std::string* result = have_opened ? &opened : nullptr;
    while (asked && ReceiveMessage(fd, kCopyWaitMs, &message)) {
        if (message.compare(0, marker, pps_wire::kCopyNow) == 0) {
            message.erase(0, marker);
            result = &message;
            break;
        }
    }
    if (result == nullptr) {
        errno = EAGAIN;
        return -1;
    }
    // As a read of a datagram: what does not fit the buffer is lost.
    size_t length = std::min(result->size(), size);
    std::memcpy(buffer, result->data(), length);
    return static_cast<ssize_t>(length);
}

// Connects to the broker; -1 with errno on failure.
int ConnectBroker(bool cloexec) {
    std::string path = pps_socket_path();
    sockaddr_un addr{};
    if (path.size() >= sizeof addr.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | (cloexec ? SOCK_CLOEXEC : 0), 0);
    if (fd < 0) return -1;
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    int rc;
    do {
        rc = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    } while (rc < 0 && errno == EINTR);
    if (rc < 0) {
        int saved = errno;
        ::close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

// Sends `request` and reads the answer into `answer`; returns the errno the
// broker answered (0 success), or our own errno when the exchange failed.
int Exchange(int fd, const std::string& request, std::string* answer) {
    if (::send(fd, request.data(), request.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request.size()))
        return errno != 0 ? errno : EIO;
    std::string buffer(pps_wire::kMaxMessage, '\0');
    ssize_t n;
    do {
        n = ::recv(fd, buffer.data(), buffer.size(), 0);
    } while (n < 0 && errno == EINTR);
    if (n < 0) return errno;
    if (n == 0) return ECONNRESET;
    buffer.resize(static_cast<size_t>(n));
    char* end = nullptr;
    long code = std::strtol(buffer.c_str(), &end, 10);
    if (end == buffer.c_str() || code < 0) return EPROTO;
    if (answer != nullptr) {
        size_t newline = buffer.find('\n');
        *answer = newline == std::string::npos ? std::string() : buffer.substr(newline + 1);
    }
    return static_cast<int>(code);
}

// One request on a connection of its own (stat, unlink, list).
int OneShot(const char* verb, const char* path, std::string* answer) {
    if (path == nullptr) {
        errno = EFAULT;
        return -1;
    }
    int fd = ConnectBroker(true);
    if (fd < 0) return -1;
    int code = Exchange(fd, std::string(verb) + "\n" + path, answer);
    ::close(fd);
    if (code != 0) {
        errno = code;
        return -1;
    }
    return 0;
}

bool HasOption(std::string_view path, std::string_view option) {
    size_t q = path.find('?');
    if (q == std::string_view::npos) return false;
    std::string_view options = path.substr(q + 1);
    while (!options.empty()) {
        size_t comma = options.find(',');
        if (options.substr(0, comma) == option) return true;
        if (comma == std::string_view::npos) break;
        options.remove_prefix(comma + 1);
    }
    return false;
}

int OpenWithExtras(const char* path, int flags, mode_t mode, int extras) {
    if (path == nullptr) {
        errno = EFAULT;
        return -1;
    }
    int fd = ConnectBroker((flags & O_CLOEXEC) != 0);
    if (fd < 0) return -1;
    int wire_flags = flags & (O_ACCMODE | O_CREAT | O_EXCL | O_TRUNC);
    char head[96];
    std::snprintf(head, sizeof head, "%s %d %o %d\n", pps_wire::kOpenVerb, wire_flags,
                  static_cast<unsigned>(mode & 07777), extras);
    std::string answer;
    int code = Exchange(fd, std::string(head) + path, &answer);
    if (code != 0) {
        ::close(fd);
        errno = code;
        return -1;
    }
    const bool copy_follows = answer == pps_wire::kCopyFollows;
    if (copy_follows) {
        // The broker sends the copy right after the answer; wait for it so
        // that a non-blocking read straight after this open finds it.
        pollfd pfd{fd, POLLIN, 0};
        int ready;
        do {
            ready = ::poll(&pfd, 1, kCopyWaitMs);
        } while (ready < 0 && errno == EINTR);
    }
    NoteOpened(fd, copy_follows && HasOption(path, "delta"));
    // Without "wait" a read must never block: it fails with EAGAIN when
    // nothing is pending, as the daemon's server read expects.
    if (!HasOption(path, "wait") || (flags & O_NONBLOCK) != 0) {
        int fl = ::fcntl(fd, F_GETFL);
        if (fl < 0 || ::fcntl(fd, F_SETFL, fl | O_NONBLOCK) < 0) {
            int saved = errno;
            ::close(fd);
            errno = saved;
            return -1;
        }
    }
    return fd;
}

}  // namespace

std::string pps_socket_path() {
    const char* env = std::getenv("PPS_SOCKET");
    return env != nullptr && *env != '\0' ? std::string(env) : std::string(kPpsDefaultSocket);
}

ssize_t pps_read(int fd, void* buffer, size_t size) {
    if (TakeFirstRead(fd)) return ReadFirstCopy(fd, buffer, size);
    ssize_t n = ::read(fd, buffer, size);
    if (n != 0) return n;
    // Zero bytes: an empty message, or the peer has closed. Only a closed
    // peer leaves the socket hung up in both directions.
    pollfd entry{fd, POLLIN, 0};
    if (::poll(&entry, 1, 0) > 0 && (entry.revents & POLLHUP) != 0) {
        errno = EBADF;
        return -1;
    }
    return 0;
}

int pps_open(const char* path, int flags, mode_t mode) {
    return OpenWithExtras(path, flags, mode, 0);
}

int pps_open_client(const char* path, int flags) {
    return OpenWithExtras(path, flags, 0, pps_wire::kOpenExtraRequireServer);
}

int pps_unlink(const char* path) {
    return OneShot(pps_wire::kUnlinkVerb, path, nullptr);
}

bool pps_exists(const char* path) {
    int saved = errno;
    bool exists = OneShot(pps_wire::kStatVerb, path, nullptr) == 0;
    errno = saved;
    return exists;
}

int pps_stat(const char* path, struct stat* info) {
    std::string answer;
    if (OneShot(pps_wire::kStatVerb, path, &answer) != 0) return -1;
    if (info == nullptr) return 0;
    *info = {};
    // "<uid> <gid> <octal mode>", with " dir" after a directory's.
    unsigned uid = 0, gid = 0, mode = 0;
    char kind[4] = "";
    if (std::sscanf(answer.c_str(), "%u %u %o %3s", &uid, &gid, &mode, kind) < 3) {
        errno = EPROTO;
        return -1;
    }
    info->st_uid = uid;
    info->st_gid = gid;
    info->st_mode = (std::strcmp(kind, "dir") == 0 ? S_IFDIR : S_IFREG) | (mode & 07777);
    return 0;
}

int pps_sync(int fd, int timeout_ms) {
    const size_t request = std::strlen(pps_wire::kSyncRequest);
    if (::send(fd, pps_wire::kSyncRequest, request, MSG_NOSIGNAL) != static_cast<ssize_t>(request))
        return errno == EPIPE ? ECONNRESET : errno;
    const size_t answer = std::strlen(pps_wire::kSyncAnswer);
    const size_t notice = std::strlen(pps_wire::kErrorNotice);
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    int refused = 0;
    std::string message(pps_wire::kMaxRead, '\0');
    for (;;) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        deadline - std::chrono::steady_clock::now())
                        .count();
        if (left <= 0) return ETIMEDOUT;
        pollfd pfd{fd, POLLIN, 0};
        int ready = ::poll(&pfd, 1, static_cast<int>(left));
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) return errno;
        if (ready == 0) continue;
        ssize_t n = ::recv(fd, message.data(), message.size(), MSG_DONTWAIT);
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        // The broker closing (or dying) confirms nothing.
        if (n <= 0) return n == 0 || errno == ECONNRESET ? ECONNRESET : errno;
        std::string_view text(message.data(), static_cast<size_t>(n));
        int code = std::atoi(std::string(text.substr(std::min(text.size(), answer))).c_str());
        if (text.substr(0, notice) == pps_wire::kErrorNotice && refused == 0)
            refused = std::atoi(std::string(text.substr(notice)).c_str());
        else if (text.substr(0, answer) == pps_wire::kSyncAnswer)
            return refused != 0 ? refused : code;
    }
}

int pps_list(const char* dir, std::vector<std::string>* entries) {
    std::string answer;
    if (OneShot(pps_wire::kListVerb, dir, &answer) != 0) return -1;
    if (entries != nullptr) {
        entries->clear();
        size_t start = 0;
        while (start < answer.size()) {
            size_t end = answer.find('\n', start);
            if (end == std::string::npos) end = answer.size();
            if (end > start) entries->push_back(answer.substr(start, end - start));
            start = end + 1;
        }
    }
    return 0;
}

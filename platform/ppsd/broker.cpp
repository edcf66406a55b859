#include "platform/ppsd/broker.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/pps/pps_wire.h"

namespace ppsd {

namespace {

constexpr int kNeedRead = 4;
constexpr int kNeedWrite = 2;
// One message per handle per wake-up: poll is level-triggered, so the rest
// comes next pass, and a request costs no extra recv that finds nothing.
constexpr int kReadsPerWake = 1;
// How often a save that failed (a full disk) is tried again.
constexpr int kSaveRetryMs = 1000;

iovec Iov(const void* data, size_t length) {
    return iovec{const_cast<void*>(data), length};
}
iovec Iov(const std::string& text) {
    return Iov(text.data(), text.size());
}

struct OpenOptions {
    bool delta = false, wait = false, server = false, nopersist = false, critical = false;
};

bool ParseOptions(std::string_view text, OpenOptions* out) {
    while (!text.empty()) {
        size_t comma = text.find(',');
        std::string_view option = text.substr(0, comma);
        if (option == "delta")
            out->delta = true;
        else if (option == "wait")
            out->wait = true;
        else if (option == "server")
            out->server = true;
        else if (option == "nopersist")
            out->nopersist = true;
        else if (option == "critical")
            out->critical = true;
        else if (!option.empty())
            return false;
        if (comma == std::string_view::npos) break;
        text.remove_prefix(comma + 1);
    }
    return true;
}

// The lines of a client's message that may reach the server: everything
// but object, connect, disconnect and truncation lines ("@x", "+@x", "-@x",
// "#@x"), which would let it speak as another client or forge connects. The
// text ends at a NUL, as the server's C-string parsing would see it.
void KeepClientLines(std::string_view text, std::string* out) {
    text = text.substr(0, text.find('\0'));
    while (!text.empty()) {
        size_t nl = text.find('\n');
        std::string_view line = text.substr(0, nl);
        text = nl == std::string_view::npos ? std::string_view() : text.substr(nl + 1);
        bool object_line = (!line.empty() && line[0] == '@') ||
                           (line.size() >= 2 && line[1] == '@' &&
                            (line[0] == '+' || line[0] == '-' || line[0] == '#'));
        if (object_line || line.empty()) continue;
        out->append(line).push_back('\n');
    }
}

std::string OwnerText(uid_t uid, gid_t gid, mode_t mode) {
    char line[64];
    std::snprintf(line, sizeof line, "%u %u %o", static_cast<unsigned>(uid),
                  static_cast<unsigned>(gid), static_cast<unsigned>(mode));
    return line;
}

}  // namespace

struct Broker::Attachments {
    std::shared_ptr<Object> object;
    std::vector<Conn*> readers;  // plain and delta handles with read access
    Conn* server = nullptr;
    std::unordered_map<uint64_t, Conn*> clients;
    uint64_t next_client_id = 1;
    size_t handles = 0;
};

struct Broker::Conn {
    enum class Role { Handshake, Plain, Delta, Writer, Server, Client };
    int fd = -1;
    Role role = Role::Handshake;
    std::chrono::steady_clock::time_point handshake_deadline;
    bool dead = false;
    // A send to it failed for good (its peer is closing): nothing more is
    // sent to it, but what it wrote is still read and applied until it
    // reads as closed, so no accepted write is lost.
    bool broken = false;
    // A client held back while its server's queue is full: not polled, not
    // read, until the server catches up (back-pressure, nothing dropped).
    bool held = false;
    // A server whose clients were held back once: said in the log once.
    bool told_slow = false;
    // A client that does not read its replies: closed at the end of the pass,
    // not while a list it is in is being walked.
    bool evicted = false;
    bool can_read = false;
    bool can_write = false;
    bool critical = false;
    bool want_out = false;
    size_t slot = 0;  // index in conns_ (pfds_ index - 2)
    Attachments* att = nullptr;
    uint64_t client_id = 0;
    std::string client_prefix;  // "@name.<id>\n", what its writes reach the server with
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;  // supplementary, without the primary group
    std::deque<std::string> queue;
    size_t queued_bytes = 0;
    bool whole_pending = false;   // plain reader: send the whole object
    bool resync_pending = false;  // overflowed: send "#" + the whole object
    size_t dropped = 0;
};

Broker::Broker(BrokerOptions options)
    : options_(std::move(options)), buffer_(pps_wire::kMaxMessage + 1) {
    if (!options_.store_dir.empty()) store_ = std::make_unique<ObjectStore>(options_.store_dir);
    if (options_.queue_cap == 0) options_.queue_cap = 1;
    if (options_.queue_bytes == 0) options_.queue_bytes = 1;
}

Broker::~Broker() {
    Shutdown();
}

void Broker::Log(const std::string& text) const {
    if (options_.log) options_.log(text);
}

int Broker::Start(std::string* error) {
    if (store_) {
        if (::mkdir(options_.store_dir.c_str(), 0700) != 0 && errno != EEXIST) {
            int code = errno;
            *error = "cannot create store " + options_.store_dir + ": " + std::strerror(code);
            return code;
        }
        std::vector<std::string> problems;
        size_t loaded = store_->LoadAll(&tree_, &problems);
        for (const auto& p : problems) Log("store: " + p);
        Log("loaded " + std::to_string(loaded) + " objects from " + options_.store_dir);
        // A store from before directories had records: each gets the owner
        // of the first object under it, and is stored from now on.
        std::vector<std::string> adopted = tree_.AdoptMissingDirectories();
        for (const auto& path : adopted) QueueDirectorySave(path);
        if (!adopted.empty())
            Log("gave " + std::to_string(adopted.size()) +
                " directories without a record the owner of their first object");
    }

    sockaddr_un addr{};
    std::string temp = options_.socket_path + ".new." + std::to_string(::getpid());
    if (temp.size() >= sizeof addr.sun_path) {
        *error = "socket path too long: " + options_.socket_path;
        return ENAMETOOLONG;
    }
    // Refuse to steal the socket of a broker that is running.
    {
        int probe = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        sockaddr_un live{};
        live.sun_family = AF_UNIX;
        std::memcpy(live.sun_path, options_.socket_path.c_str(), options_.socket_path.size() + 1);
        bool running =
            probe >= 0 && ::connect(probe, reinterpret_cast<sockaddr*>(&live), sizeof live) == 0;
        if (probe >= 0) ::close(probe);
        if (running) {
            *error = "a broker already listens on " + options_.socket_path;
            return EADDRINUSE;
        }
    }
    listen_fd_ = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listen_fd_ < 0) {
        int code = errno;
        *error = std::string("socket: ") + std::strerror(code);
        return code;
    }
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, temp.c_str(), temp.size() + 1);
    ::unlink(temp.c_str());
    if (::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::chmod(temp.c_str(), 0666) != 0 || ::listen(listen_fd_, 128) != 0 ||
        ::rename(temp.c_str(), options_.socket_path.c_str()) != 0) {
        int code = errno;
        *error = "cannot listen on " + options_.socket_path + ": " + std::strerror(code);
        ::unlink(temp.c_str());
        ::close(listen_fd_);
        listen_fd_ = -1;
        return code;
    }
    return 0;
}

void Broker::Run(int stop_fd) {
    pfds_.clear();
    pfds_.push_back(pollfd{listen_fd_, POLLIN, 0});
    pfds_.push_back(pollfd{stop_fd, POLLIN, 0});
    for (;;) {
        int timeout = ExpireHandshakes();
        if (!save_queue_.empty() || !directory_saves_.empty()) {
            // Saves that failed are tried again when due.
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                            retry_at_ - std::chrono::steady_clock::now())
                            .count();
            int retry = static_cast<int>(std::clamp<long long>(left + 1, 0, kSaveRetryMs));
            timeout = timeout < 0 ? retry : std::min(timeout, retry);
        }
        int ready = ::poll(pfds_.data(), pfds_.size(), timeout);
        if (ready < 0) {
            if (errno == EINTR) continue;
            Log(std::string("poll: ") + std::strerror(errno));
            return;
        }
        if (pfds_[1].revents != 0) return;
        // Connections accepted now are appended; look only at those polled.
        size_t polled = pfds_.size();
        for (size_t i = 2; i < polled; ++i) {
            short revents = pfds_[i].revents;
            if (revents == 0) continue;
            Conn* conn = conns_[i - 2].get();
            if (conn->dead) continue;
            if (revents & POLLOUT) Flush(conn);
            if (!conn->dead && (revents & (POLLIN | POLLHUP | POLLERR))) OnReadable(conn);
        }
        if (pfds_[0].revents & POLLIN) Accept();
        SaveChanged(false);
        AnswerSyncs();
        if (sweep_needed_) Sweep();
    }
}

void Broker::Shutdown() {
    SaveChanged(true);
    for (const auto& object : save_queue_)
        Log("could not store " + object->path() + " before stopping: its last changes are lost");
    for (const auto& path : directory_saves_)
        Log("could not store directory " + path + " before stopping: it is lost");
    // The broker goes away: no notices, no critical clean-up (a restart is
    // not the end of the writers that own the objects).
    for (auto& conn : conns_)
        if (conn->fd >= 0) ::close(conn->fd);
    conns_.clear();
    attachments_.clear();
    pfds_.resize(std::min<size_t>(pfds_.size(), 2));
    if (listen_fd_ >= 0) {
        ::close(listen_fd_);
        listen_fd_ = -1;
        ::unlink(options_.socket_path.c_str());
    }
}

void Broker::Accept() {
    for (;;) {
        int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                // The connection stays in the backlog; poll would report it
                // again at once, so the listener rests until a handle closes.
                Log(std::string("accept: ") + std::strerror(errno) +
                    "; not accepting until a descriptor frees");
                accept_paused_ = true;
                pfds_[0].fd = -1 - listen_fd_;
            } else if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
                Log(std::string("accept: ") + std::strerror(errno));
            }
            return;
        }
        auto conn = std::make_unique<Conn>();
        conn->fd = fd;
        ucred cred{};
        socklen_t len = sizeof cred;
        if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len) != 0) {
            Log(std::string("SO_PEERCRED: ") + std::strerror(errno));
            ::close(fd);
            continue;
        }
        conn->pid = cred.pid;
        conn->uid = cred.uid;
        conn->gid = cred.gid;
        gid_t groups[256];
        socklen_t glen = sizeof groups;
        if (::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups, &glen) == 0) {
            for (size_t i = 0; i < glen / sizeof(gid_t); ++i)
                if (groups[i] != cred.gid) conn->groups.push_back(groups[i]);
        }
        // Its handshake is read in a later pass, after what older handles
        // had already sent: a write that returned before this open began is
        // applied before the open sees the object.
        conn->handshake_deadline = std::chrono::steady_clock::now() +
                                   std::chrono::milliseconds(options_.handshake_timeout_ms);
        conn->slot = conns_.size();
        ++pending_handshakes_;
        conns_.push_back(std::move(conn));
        pfds_.push_back(pollfd{fd, POLLIN, 0});
    }
}

int Broker::ExpireHandshakes() {
    // Most passes have no open in progress: no walk over every handle then.
    if (pending_handshakes_ == 0) {
        if (sweep_needed_) Sweep();
        return -1;
    }
    auto now = std::chrono::steady_clock::now();
    auto next = std::chrono::steady_clock::time_point::max();
    for (auto& conn : conns_) {
        if (conn->dead || conn->role != Conn::Role::Handshake) continue;
        if (conn->handshake_deadline <= now) {
            Log("dropped a connection that sent no request in time");
            Close(conn.get());
        } else {
            next = std::min(next, conn->handshake_deadline);
        }
    }
    if (sweep_needed_) Sweep();
    if (next == std::chrono::steady_clock::time_point::max()) return -1;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count();
    return static_cast<int>(std::max<long long>(1, left + 1));
}

void Broker::OnReadable(Conn* conn) {
    for (int round = 0; round < kReadsPerWake && !conn->dead && !conn->held; ++round) {
        ssize_t n =
            ::recv(conn->fd, buffer_.data(), pps_wire::kMaxMessage, MSG_DONTWAIT | MSG_TRUNC);
        if (n < 0) {
            // ECONNRESET: the peer closed with messages of ours unread; the
            // error is reported once, and what it wrote before comes next.
            if (errno == EINTR || errno == ECONNRESET) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) Close(conn);
            return;
        }
        if (n == 0) {
            Close(conn);
            return;
        }
        if (static_cast<size_t>(n) > pps_wire::kMaxMessage) {
            Log("refused a message of " + std::to_string(n) + " bytes (limit " +
                std::to_string(pps_wire::kMaxMessage) + ")");
            if (conn->role == Conn::Role::Handshake)
                Close(conn);
            else
                Refuse(conn, EMSGSIZE);
            continue;
        }
        buffer_[static_cast<size_t>(n)] = '\0';
        if (conn->role == Conn::Role::Handshake) {
            // What older handles sent before this open began is applied
            // first, so a write that returned is seen by a later open.
            std::string handshake(buffer_.data(), static_cast<size_t>(n));
            DrainEstablished(conn);
            if (!conn->dead) OnHandshake(conn, handshake.data(), handshake.size());
            return;
        }
        OnMessage(conn, buffer_.data(), static_cast<size_t>(n));
    }
}

void Broker::DrainEstablished(Conn* except) {
    for (size_t i = 0; i < conns_.size(); ++i) {
        Conn* other = conns_[i].get();
        if (other == except || other->dead || other->role == Conn::Role::Handshake) continue;
        for (bool reset_seen = false; !other->held;) {
            ssize_t n =
                ::recv(other->fd, buffer_.data(), pps_wire::kMaxMessage, MSG_DONTWAIT | MSG_TRUNC);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && errno == ECONNRESET && !reset_seen) {  // as in OnReadable
                reset_seen = true;
                continue;
            }
            if (n < 0) {
                if (errno != EAGAIN && errno != EWOULDBLOCK) Close(other);
                break;
            }
            if (n == 0) {
                Close(other);
                break;
            }
            if (static_cast<size_t>(n) > pps_wire::kMaxMessage) {
                Refuse(other, EMSGSIZE);
                continue;
            }
            buffer_[static_cast<size_t>(n)] = '\0';
            OnMessage(other, buffer_.data(), static_cast<size_t>(n));
            if (other->dead) break;
        }
    }
}

void Broker::AnswerAndMaybeClose(Conn* conn, int code, const std::string& extra, bool close_after) {
    std::string answer = std::to_string(code);
    if (!extra.empty()) answer += "\n" + extra;
    // The client waits for this answer with nothing else in flight, so the
    // kernel buffer is empty: this send does not block.
    if (::send(conn->fd, answer.data(), answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0)
        close_after = true;
    if (close_after) Close(conn);
}

void Broker::OnHandshake(Conn* conn, char* text, size_t length) {
    char* newline = static_cast<char*>(std::memchr(text, '\n', length));
    if (newline == nullptr) {
        AnswerAndMaybeClose(conn, EPROTO, "", true);
        return;
    }
    *newline = '\0';
    std::string_view head(text);
    char* argument = newline + 1;
    std::string_view verb = head.substr(0, head.find(' '));
    if (verb == pps_wire::kOpenVerb) {
        int code = OpenObject(conn, text);
        if (code != 0) AnswerAndMaybeClose(conn, code, "", true);
        return;
    }
    std::string path;
    std::string_view raw(argument);
    raw = raw.substr(0, raw.find('?'));
    if (!NormalizePath(raw, &path)) {
        AnswerAndMaybeClose(conn, EINVAL, "", true);
        return;
    }
    if (verb == pps_wire::kStatVerb) {
        std::shared_ptr<Object> object = tree_.Find(path);
        const Directory* dir = tree_.FindDirectory(path);
        std::string owner;
        if (object != nullptr)
            owner = OwnerText(object->owner_uid(), object->owner_gid(), object->mode());
        else if (dir != nullptr)
            owner = OwnerText(dir->owner_uid, dir->owner_gid, dir->mode) + " dir";
        AnswerAndMaybeClose(conn, owner.empty() ? ENOENT : 0, owner, true);
    } else if (verb == pps_wire::kListVerb) {
        if (tree_.Find(path) != nullptr) {
            AnswerAndMaybeClose(conn, ENOTDIR, "", true);
        } else if (!tree_.IsDirectory(path)) {
            AnswerAndMaybeClose(conn, ENOENT, "", true);
        } else {
            std::string listing;
            for (const auto& entry : tree_.List(path)) listing += entry + "\n";
            AnswerAndMaybeClose(conn, 0, listing, true);
        }
    } else if (verb == pps_wire::kUnlinkVerb) {
        std::shared_ptr<Object> object = tree_.Find(path);
        int code = 0;
        if (object == nullptr)
            code = tree_.IsDirectory(path) ? RemoveDirectory(*conn, path) : ENOENT;
        else if (!Allowed(*conn, *object, kNeedWrite))
            code = EACCES;
        else if (conn->uid != 0 && conn->uid != object->owner_uid())
            code = EPERM;  // as in a sticky directory: only the owner (or root) removes it
        if (code == 0 && object != nullptr) {
            tree_.Erase(path);
            if (store_) store_->Remove(path);
            object->persistent = false;
            object->detached = true;
            auto found = attachments_.find(object.get());
            if (found != attachments_.end()) NotifyLine(found->second.get(), nullptr, "-");
        }
        AnswerAndMaybeClose(conn, code, "", true);
    } else {
        AnswerAndMaybeClose(conn, EPROTO, "", true);
    }
}

// An empty directory is removed as by rmdir in a sticky directory: by its
// owner (or root), who may write the directory holding it.
int Broker::RemoveDirectory(const Conn& conn, const std::string& path) {
    if (path == "/" || path == "/pps") return EBUSY;
    const Directory* dir = tree_.FindDirectory(path);
    if (tree_.HasEntriesUnder(path)) return ENOTEMPTY;
    const Directory* parent = tree_.FindDirectory(tree_.NearestDirectory(path));
    if (!Allowed(conn, *parent, kNeedWrite)) return EACCES;
    if (conn.uid != 0 && conn.uid != dir->owner_uid) return EPERM;
    tree_.EraseDirectory(path);
    if (store_) store_->Remove(path);
    return 0;
}

bool Broker::Allowed(const Conn& conn, const Object& object, int need) const {
    return Allowed(conn, object.owner_uid(), object.owner_gid(), object.mode(), need);
}

bool Broker::Allowed(const Conn& conn, const Directory& dir, int need) const {
    return Allowed(conn, dir.owner_uid, dir.owner_gid, dir.mode, need);
}

bool Broker::Allowed(const Conn& conn, uid_t uid, gid_t gid, mode_t mode, int need) const {
    if (conn.uid == 0) return true;  // root passes, as on files
    int bits;
    if (conn.uid == uid) {
        bits = (mode >> 6) & 7;
    } else if (conn.gid == gid ||
               std::find(conn.groups.begin(), conn.groups.end(), gid) != conn.groups.end()) {
        bits = (mode >> 3) & 7;
    } else {
        bits = mode & 7;
    }
    return (need & ~bits) == 0;
}

Broker::Attachments* Broker::Attach(const std::shared_ptr<Object>& object) {
    auto& slot = attachments_[object.get()];
    if (!slot) {
        slot = std::make_unique<Attachments>();
        slot->object = object;
    }
    return slot.get();
}

// "open <flags> <mode> <extras>" in `head`, the path with options after it.
int Broker::OpenObject(Conn* conn, char* head) {
    int flags = 0, extras = 0;
    unsigned mode = 0;
    if (std::sscanf(head, "open %d %o %d", &flags, &mode, &extras) != 3) return EPROTO;
    std::string_view full(head + std::strlen(head) + 1);
    size_t q = full.find('?');
    OpenOptions options;
    if (q != std::string_view::npos && !ParseOptions(full.substr(q + 1), &options)) return EINVAL;
    std::string path;
    if (!NormalizePath(full.substr(0, q), &path)) return EINVAL;
    if (int bad = CheckObjectName(path); bad != 0) return bad;
    if (tree_.IsDirectory(path)) return EISDIR;
    if (tree_.HasObjectAncestor(path)) return ENOTDIR;

    int accmode = flags & O_ACCMODE;
    int need = accmode == O_RDONLY   ? kNeedRead
               : accmode == O_WRONLY ? kNeedWrite
                                     : kNeedRead | kNeedWrite;
    bool require_server = (extras & pps_wire::kOpenExtraRequireServer) != 0;

    std::shared_ptr<Object> object = tree_.Find(path);
    bool created = false;
    if (object == nullptr) {
        if ((flags & O_CREAT) == 0 || require_server) return ENOENT;
        // Creating needs the right to write the directory it goes in (or
        // the closest one that exists, where its missing parents go).
        const Directory* dir = tree_.FindDirectory(tree_.NearestDirectory(path));
        if (!Allowed(*conn, *dir, kNeedWrite)) return EACCES;
        for (const auto& made :
             tree_.MakeParents(path, DirectoryFor(conn->uid, conn->gid, static_cast<mode_t>(mode))))
            QueueDirectorySave(made);
        object = std::make_shared<Object>(path, conn->uid, conn->gid, mode);
        object->persistent = !options.nopersist && store_ != nullptr;
        tree_.Insert(object);
        created = true;
    } else {
        if ((flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL)) return EEXIST;
        if (!Allowed(*conn, *object, need)) return EACCES;
        if ((flags & O_TRUNC) != 0 && accmode == O_RDONLY) return EACCES;
        // Options that change the object (empty it, drop its stored copy)
        // need the right to write it, whatever the handle's access mode.
        bool changes = (flags & O_TRUNC) != 0 || options.critical || options.nopersist;
        if (changes && !Allowed(*conn, *object, kNeedWrite)) return EACCES;
    }
    auto existing = attachments_.find(object.get());
    Conn* current_server = existing == attachments_.end() ? nullptr : existing->second->server;
    if (options.server && current_server != nullptr) return EBUSY;
    if (require_server && (options.server || current_server == nullptr)) return ENXIO;
    Attachments* att = Attach(object);

    if (options.nopersist && object->persistent) {
        // Its text leaves the store; its entry stays (see object_store.h).
        object->persistent = false;
        object->entry_stored = false;
    }
    if (!created && (flags & O_TRUNC) != 0 && object->Clear()) NotifyLine(att, nullptr, "#");
    if (created || object->dirty || !object->entry_stored) QueueSave(object.get());

    conn->att = att;
    conn->can_read = accmode != O_WRONLY;
    conn->can_write = accmode != O_RDONLY;
    conn->critical = options.critical;
    ++att->handles;
    --pending_handshakes_;  // the handle takes its role now
    if (options.server) {
        conn->role = Conn::Role::Server;
        att->server = conn;
    } else if (att->server != nullptr) {
        conn->role = Conn::Role::Client;
        conn->client_id = att->next_client_id++;
        conn->client_prefix = "@";
        conn->client_prefix.append(object->basename())
            .append(".")
            .append(std::to_string(conn->client_id))
            .append("\n");
        att->clients.emplace(conn->client_id, conn);
    } else if (conn->can_read) {
        conn->role = options.delta ? Conn::Role::Delta : Conn::Role::Plain;
        att->readers.push_back(conn);
    } else {
        conn->role = Conn::Role::Writer;
    }

    bool copy_follows = conn->role == Conn::Role::Plain || conn->role == Conn::Role::Delta;
    AnswerAndMaybeClose(conn, 0, copy_follows ? pps_wire::kCopyFollows : "", false);
    if (conn->dead) return 0;
    if (copy_follows) {
        SendWhole(conn);
    } else if (conn->role == Conn::Role::Client) {
        SendConnectLine(att, conn);
    } else if (conn->role == Conn::Role::Server) {
        // Clients left from an earlier server are announced to this one.
        for (auto& [id, client] : att->clients) SendConnectLine(att, client);
    }
    return 0;
}

void Broker::SendCopyNow(Conn* conn) {
    if (conn->role != Conn::Role::Plain && conn->role != Conn::Role::Delta) return;
    // This answer is the whole object now: a resync still waiting would only
    // repeat it, and would hold the answer back (nothing is queued behind one).
    conn->resync_pending = false;
    iovec iov[2] = {Iov(pps_wire::kCopyNow, std::strlen(pps_wire::kCopyNow)),
                    Iov(conn->att->object->Render())};
    Send(conn, iov, 2);
}

void Broker::SendConnectLine(Attachments* att, Conn* client) {
    if (att->server == nullptr) return;
    char line[128];
    int n = std::snprintf(line, sizeof line, ".n0.p%d.u%u.g%u", static_cast<int>(client->pid),
                          static_cast<unsigned>(client->uid), static_cast<unsigned>(client->gid));
    std::string text = "+" + client->client_prefix.substr(0, client->client_prefix.size() - 1);
    text.append(line, static_cast<size_t>(n));
    for (gid_t g : client->groups) text += ".g" + std::to_string(g);
    text += "\n";
    iovec iov = Iov(text);
    Send(att->server, &iov, 1);
}

void Broker::OnMessage(Conn* conn, char* text, size_t length) {
    if (std::string_view(text, length) == pps_wire::kCopyNow) {
        SendCopyNow(conn);
        return;
    }
    if (std::string_view(text, length) == pps_wire::kSyncRequest) {
        // Answered once this pass's changes have gone to the store.
        sync_waiters_.push_back(conn);
        return;
    }
    if (!conn->can_write) return;  // a read-only handle's writes go nowhere
    switch (conn->role) {
        case Conn::Role::Server:
            RouteFromServer(conn, text, length);
            break;
        case Conn::Role::Client:
            RouteToServer(conn, text, length);
            break;
        default:
            WriteToObject(conn, text, length);
            break;
    }
}

void Broker::WriteToObject(Conn* conn, char* text, size_t length) {
    Attachments* att = conn->att;
    Object* object = att->object.get();
    // A write grows an object by at most its own length; one that might take
    // it past the limit is tried on a copy first and refused if it would.
    if (object->attribute_bytes() + length > pps_wire::kMaxObject) {
        Object trial = *object;
        std::string copy(text, length);
        std::string delta;
        trial.Apply(copy.data(), &delta);
        if (trial.attribute_bytes() > pps_wire::kMaxObject) {
            Log("refused a write that would take " + object->path() + " past " +
                std::to_string(pps_wire::kMaxObject) + " bytes");
            Refuse(conn, EFBIG);
            return;
        }
    }
    scratch_.clear();
    if (att->object->Apply(text, &scratch_) == 0) return;
    QueueSave(att->object.get());
    NotifyChange(att, conn);
}

// scratch_ holds the changed lines of the last write.
void Broker::NotifyChange(Attachments* att, Conn* except) {
    iovec iov[2] = {Iov(att->object->object_line()), Iov(scratch_)};
    for (Conn* reader : att->readers) {
        if (reader == except || reader->dead) continue;
        if (reader->role == Conn::Role::Delta)
            Send(reader, iov, 2);
        else
            SendWhole(reader);
    }
}

// A one-line notice ("#@name" truncated, "-@name" deleted) to every reader
// of the object.
void Broker::NotifyLine(Attachments* att, Conn* except, const char* prefix) {
    iovec iov[2] = {Iov(prefix, std::strlen(prefix)), Iov(att->object->object_line())};
    for (Conn* reader : att->readers)
        if (reader != except && !reader->dead) Send(reader, iov, 2);
}

void Broker::RouteToServer(Conn* conn, const char* text, size_t length) {
    Conn* server = conn->att->server;
    if (server == nullptr || server->dead) return;  // no server now: nobody to hear it
    scratch_.clear();
    KeepClientLines(std::string_view(text, length), &scratch_);
    iovec iov[2] = {Iov(conn->client_prefix), Iov(scratch_)};
    Send(server, iov, 2);
}

void Broker::RouteFromServer(Conn* conn, const char* text, size_t length) {
    Attachments* att = conn->att;
    std::string_view body(text, length);
    bool addressed = false;
    uint64_t id = 0;
    if (!body.empty() && body[0] == '@') {
        size_t nl = body.find('\n');
        std::string_view line =
            body.substr(1, nl == std::string_view::npos ? std::string_view::npos : nl - 1);
        body = nl == std::string_view::npos ? std::string_view() : body.substr(nl + 1);
        size_t dot = line.rfind('.');
        if (dot != std::string_view::npos && dot + 1 < line.size() && line.size() - dot - 1 <= 20) {
            addressed = true;
            for (size_t i = dot + 1; i < line.size() && addressed; ++i) {
                char c = line[i];
                if (c < '0' || c > '9') {
                    addressed = false;
                } else {
                    uint64_t next = id * 10 + static_cast<uint64_t>(c - '0');
                    if (next / 10 != id) addressed = false;  // past 2^64-1
                    id = next;
                }
            }
        }
    }
    iovec iov[2] = {Iov(att->object->object_line()), Iov(body.data(), body.size())};
    if (addressed) {
        auto found = att->clients.find(id);
        if (found != att->clients.end() && !found->second->dead) Send(found->second, iov, 2);
        return;
    }
    for (auto& [client_id, client] : att->clients)
        if (!client->dead) Send(client, iov, 2);
}

void Broker::Refuse(Conn* conn, int code) {
    std::string notice = pps_wire::kErrorNotice + std::to_string(code) + "\n";
    iovec iov = Iov(notice);
    Send(conn, &iov, 1);
}

bool Broker::TrySend(Conn* conn, const iovec* iov, int count) {
    msghdr msg{};
    msg.msg_iov = const_cast<iovec*>(iov);
    msg.msg_iovlen = static_cast<size_t>(count);
    ssize_t n;
    do {
        n = ::sendmsg(conn->fd, &msg, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (n < 0 && errno == EINTR);
    if (n >= 0) return true;
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != ENOBUFS) {
        conn->broken = true;
        conn->queue.clear();
        conn->queued_bytes = 0;
        conn->whole_pending = conn->resync_pending = false;
        SetWantOut(conn, false);
    }
    return false;
}

void Broker::Send(Conn* conn, const iovec* iov, int count) {
    if (conn->dead || conn->broken) return;
    if (conn->queue.empty() && !conn->whole_pending && !conn->resync_pending) {
        if (TrySend(conn, iov, count) || conn->broken) return;
    }
    Enqueue(conn, iov, count);
}

void Broker::SendWhole(Conn* conn) {
    if (conn->dead || conn->whole_pending || conn->resync_pending) return;
    iovec iov = Iov(conn->att->object->Render());
    if (conn->queue.empty()) {
        Send(conn, &iov, 1);
        return;
    }
    // Something older waits: send the then-current object after it.
    conn->whole_pending = true;
    SetWantOut(conn, true);
}

bool Broker::QueueFull(const Conn& conn, size_t divisor) const {
    return conn.queue.size() >= (options_.queue_cap + divisor - 1) / divisor ||
           conn.queued_bytes >= (options_.queue_bytes + divisor - 1) / divisor;
}

void Broker::Enqueue(Conn* conn, const iovec* iov, int count) {
    bool state_reader = conn->role == Conn::Role::Plain || conn->role == Conn::Role::Delta;
    if (conn->resync_pending) return;  // the coming whole copy covers it
    if (QueueFull(*conn, 1)) {
        if (state_reader) {
            conn->queue.clear();
            conn->queued_bytes = 0;
            conn->whole_pending = false;
            conn->resync_pending = true;
            if (conn->dropped++ == 0)
                Log("slow reader of " + conn->att->object->path() + ": queue full, will resync");
            SetWantOut(conn, true);
            return;
        }
        if (conn->role == Conn::Role::Client) {
            // Replies are not state and cannot be folded; a client that does
            // not read them is disconnected, which it sees, rather than
            // losing some of them unseen.
            Log("client " + std::to_string(conn->client_id) + " of " + conn->att->object->path() +
                " does not read its replies: disconnected");
            conn->evicted = true;
            sweep_needed_ = true;
            return;
        }
        // The server: its clients were held back when the queue filled, so
        // only connect and disconnect lines get here; they are kept.
    }
    std::string message;
    size_t total = 0;
    for (int i = 0; i < count; ++i) total += iov[i].iov_len;
    message.reserve(total);
    for (int i = 0; i < count; ++i)
        message.append(static_cast<const char*>(iov[i].iov_base), iov[i].iov_len);
    conn->queued_bytes += message.size();
    conn->queue.push_back(std::move(message));
    SetWantOut(conn, true);
    if (conn->role == Conn::Role::Server && QueueFull(*conn, 1)) {
        if (!conn->told_slow)
            Log("server of " + conn->att->object->path() +
                " reads slower than its clients write: they wait for it");
        conn->told_slow = true;
        HoldClients(conn->att, true);
    }
}

void Broker::HoldClients(Attachments* att, bool hold) {
    for (auto& [id, client] : att->clients) {
        if (client->dead || client->held == hold) continue;
        client->held = hold;
        // poll skips a negative descriptor: a held client costs no wake-up,
        // even once it has hung up.
        pfds_[client->slot + 2].fd = hold ? -1 - client->fd : client->fd;
    }
}

void Broker::Flush(Conn* conn) {
    while (!conn->queue.empty()) {
        iovec iov = Iov(conn->queue.front());
        if (!TrySend(conn, &iov, 1)) break;
        conn->queued_bytes -= conn->queue.front().size();
        conn->queue.pop_front();
    }
    // The server caught up (half its queue is free): its clients go on.
    if (conn->role == Conn::Role::Server && !QueueFull(*conn, 2)) HoldClients(conn->att, false);
    if (!conn->queue.empty()) return;
    if (conn->resync_pending) {
        iovec iov[2] = {Iov("#", 1), Iov(conn->att->object->Render())};
        if (!TrySend(conn, iov, 2)) return;
        conn->resync_pending = false;
    }
    if (conn->whole_pending) {
        iovec iov = Iov(conn->att->object->Render());
        if (!TrySend(conn, &iov, 1)) return;
        conn->whole_pending = false;
    }
    SetWantOut(conn, false);
}

void Broker::SetWantOut(Conn* conn, bool want) {
    if (conn->want_out == want) return;
    conn->want_out = want;
    pfds_[conn->slot + 2].events = static_cast<short>(want ? (POLLIN | POLLOUT) : POLLIN);
}

void Broker::Close(Conn* conn) {
    if (conn->dead) return;
    conn->dead = true;
    sweep_needed_ = true;
    if (conn->role == Conn::Role::Handshake) --pending_handshakes_;
    Attachments* att = conn->att;
    if (att != nullptr) {
        Object* object = att->object.get();
        if (conn->role == Conn::Role::Server) {
            att->server = nullptr;
            HoldClients(att, false);  // their writes go nowhere now
        } else if (conn->role == Conn::Role::Client) {
            att->clients.erase(conn->client_id);
            if (att->server != nullptr && !att->server->dead) {
                std::string line = "-" + conn->client_prefix;
                iovec iov = Iov(line);
                Send(att->server, &iov, 1);
            }
        } else {
            att->readers.erase(std::remove(att->readers.begin(), att->readers.end(), conn),
                               att->readers.end());
        }
        if (conn->critical && object->Clear()) {
            // No stale state outlives the writer that owned it.
            QueueSave(object);
            NotifyLine(att, conn, "#");
        }
        if (--att->handles == 0) attachments_.erase(object);
        conn->att = nullptr;
    }
    sync_waiters_.erase(std::remove(sync_waiters_.begin(), sync_waiters_.end(), conn),
                        sync_waiters_.end());
    ::close(conn->fd);
    conn->fd = -1;
}

void Broker::Sweep() {
    // Closing one handle may tell others (a server), and that may evict
    // another in turn: close until none is left to evict.
    for (bool closed = true; closed;) {
        closed = false;
        for (size_t i = 0; i < conns_.size(); ++i) {
            Conn* conn = conns_[i].get();
            if (conn->evicted && !conn->dead) {
                Close(conn);
                closed = true;
            }
        }
    }
    size_t out = 0;
    for (size_t i = 0; i < conns_.size(); ++i) {
        if (conns_[i]->dead) continue;
        if (out != i) {
            conns_[out] = std::move(conns_[i]);
            conns_[out]->slot = out;
            pfds_[out + 2] = pfds_[i + 2];
        }
        ++out;
    }
    conns_.resize(out);
    pfds_.resize(out + 2);
    sweep_needed_ = false;
    if (accept_paused_) {  // descriptors were freed: accept again
        accept_paused_ = false;
        pfds_[0].fd = listen_fd_;
    }
}

void Broker::QueueSave(Object* object) {
    if (!store_ || (!object->persistent && object->entry_stored)) return;
    // A change to an object whose save failed earlier tries again at once.
    fresh_saves_ = true;
    if (object->save_queued) return;
    std::shared_ptr<Object> owned = tree_.Find(object->path());
    if (owned.get() != object) return;
    object->save_queued = true;
    save_queue_.push_back(std::move(owned));
}

void Broker::QueueDirectorySave(const std::string& path) {
    if (!store_) return;
    fresh_saves_ = true;
    if (std::find(directory_saves_.begin(), directory_saves_.end(), path) == directory_saves_.end())
        directory_saves_.push_back(path);
}

void Broker::SaveChanged(bool retry_now) {
    if (save_queue_.empty() && directory_saves_.empty()) return;
    auto now = std::chrono::steady_clock::now();
    if (!fresh_saves_ && !retry_now && now < retry_at_) return;
    fresh_saves_ = false;
    // Directories first: an object stored without its directory's record
    // would give that directory to the object's owner at the next start.
    std::vector<std::string> unsaved;
    for (auto& path : directory_saves_) {
        const Directory* record = tree_.FindDirectory(path);
        if (record == nullptr) continue;  // removed meanwhile
        int code = store_->SaveDirectory(path, *record);
        if (code == 0) continue;
        if (code != directory_store_error_)
            Log("cannot store directory " + path + ": " + std::strerror(code) + "; trying again");
        directory_store_error_ = code;
        unsaved.push_back(std::move(path));
    }
    if (unsaved.empty()) directory_store_error_ = 0;
    directory_saves_ = std::move(unsaved);
    // What cannot be stored (a full disk) stays queued, is kept in memory
    // and tried again every kSaveRetryMs, and a writer asking for its write
    // to be confirmed is told the error meanwhile.
    std::vector<std::shared_ptr<Object>> failed;
    for (auto& object : save_queue_) {
        object->save_queued = false;
        if (object->detached || (!object->persistent && object->entry_stored)) continue;
        int previous = object->store_error;
        int code = store_->Save(*object);
        if (code == 0) {
            if (previous != 0) Log("stored " + object->path() + " at last");
            continue;
        }
        if (code != previous)
            Log("cannot store " + object->path() + ": " + std::strerror(code) +
                "; kept in memory, trying again");
        object->store_error = code;
        object->save_queued = true;
        failed.push_back(std::move(object));
    }
    save_queue_ = std::move(failed);
    retry_at_ = now + std::chrono::milliseconds(kSaveRetryMs);
}

void Broker::AnswerSyncs() {
    for (Conn* conn : sync_waiters_) {
        int code = 0;
        Object* object = conn->att != nullptr ? conn->att->object.get() : nullptr;
        if (store_ && object != nullptr && object->persistent && object->dirty && !object->detached)
            code = object->store_error != 0 ? object->store_error : EIO;
        std::string answer = pps_wire::kSyncAnswer + std::to_string(code) + "\n";
        iovec iov = Iov(answer);
        Send(conn, &iov, 1);
    }
    sync_waiters_.clear();
}

}  // namespace ppsd

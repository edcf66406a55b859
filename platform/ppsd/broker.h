// ppsd's broker: the PPS service on one AF_UNIX SOCK_SEQPACKET socket,
// single-threaded around poll.
//
// Every open object is one connection (see platform/pps/pps_wire.h for the
// open handshake). What a handle reads:
//  - plain handle with read access: the whole object ("@name\n" and its
//    attribute lines) right after the open, and the whole object again after
//    each write by another handle that changed it;
//  - "?delta": the whole object first, then one "@name" group per write by
//    another handle, holding only the attributes that changed ("name:enc:value")
//    or were deleted ("-name"); a write that changes nothing sends nothing;
//  - a handle never gets its own writes back;
//  - "#@name" followed by attribute lines means "forget what you had, this is
//    the whole object now": sent when the object is truncated (O_TRUNC by
//    another handle, or a "?critical" handle closed: then it has no lines),
//    and when a slow reader's queue overflowed (see below);
//  - "-@name": the object was unlinked;
//  - "!copy" and the whole object: the answer to a "!copy" line the handle
//    sent (pps_wire::kCopyNow), which pps_read sends at a delta handle's
//    first read so that read gives the object as it stands then.
// Server objects: the handle opened "?server" is the server (one at a time,
// else EBUSY). A non-server handle opened while the server is there is a
// client with an id (1, 2, ... per object). Its writes go only to the server,
// as "@<name>.<id>\n" followed by its attribute lines (object, connect,
// disconnect and truncation lines of its own are dropped, so that it cannot
// speak as another client); its connect arrives as "+@<name>.<id>.n0.p<pid>.u<uid>.g<gid>
// [.g<gid>...]" (kernel credentials of its connection, primary group first,
// then the other supplementary groups), its disconnect as "-@<name>.<id>".
// A server write whose object line ends in ".<digits>" goes to that client
// only, else to every client, with the object line rewritten to "@<name>".
// Server objects keep no attributes from these messages.
//
// Bounded queues: the broker hands each message straight to the kernel
// socket; only what the kernel will not take (the reader is slow) waits in
// the broker, at most `queue_cap` messages and `queue_bytes` bytes per
// handle. On overflow:
//  - a delta or plain reader loses its pending messages and gets one
//    "#@name" message with the whole object instead (later writes are folded
//    into it until it is sent), so it never misses the current state;
//  - a server's clients are no longer read until half its queue is free:
//    their writes wait in their sockets (back-pressure), none is dropped;
//  - a client that does not read its replies is disconnected and logged.
// A handle whose peer is closing (a send to it failed) is still read until
// it reads as closed: every write accepted from it is applied.
//
// Confirmed writes: a handle that sends pps_wire::kSyncRequest after its
// writes gets pps_wire::kSyncAnswer with 0 once they are applied and, for a
// persistent object, stored; with the errno of the store (ENOSPC) when they
// could not be stored. Such a write stays applied and queued, tried again
// every second; only a broker stopped before it succeeds loses it (logged).
// "stat" answers an object's owner, group and mode ("<uid> <gid> <octal>"),
// a directory's followed by " dir".
// Directories (object_store.h): creating an object needs write permission on
// the directory it goes in; missing parents are made with DirectoryFor; "/"
// and "/pps" are open to all, and only the owner of an object or an empty
// directory (or root) removes it, as in /tmp.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/ppsd/object_store.h"

struct pollfd;
struct iovec;

namespace ppsd {

struct BrokerOptions {
    std::string socket_path;
    std::string store_dir;             // where persistent objects live; empty: nothing persists
    size_t queue_cap = 256;            // messages held per handle beyond the kernel's buffer
    size_t queue_bytes = 1024 * 1024;  // and bytes held per handle
    int handshake_timeout_ms = 5000;   // a new connection that says nothing is dropped
    std::function<void(const std::string&)> log;  // notable events; may be empty
};

class Broker {
  public:
    explicit Broker(BrokerOptions options);
    ~Broker();
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    // Loads the store, then binds and listens on a temporary name and
    // renames it to the socket path: the socket appears only once it
    // accepts. 0, or an errno with `error` saying what failed.
    int Start(std::string* error);
    // Serves until `stop_fd` (e.g. a signalfd) becomes readable.
    void Run(int stop_fd);
    // Stores what changed, closes every handle and removes the socket.
    void Shutdown();

  private:
    struct Conn;
    struct Attachments;

    void Accept();
    // Closes connections whose open handshake did not come in time; the
    // poll time-out until the next such deadline (-1: none pending).
    int ExpireHandshakes();
    void OnReadable(Conn* conn);
    void OnHandshake(Conn* conn, char* text, size_t length);
    void DrainEstablished(Conn* except);
    int OpenObject(Conn* conn, char* text);
    void AnswerAndMaybeClose(Conn* conn, int code, const std::string& extra, bool close_after);
    void OnMessage(Conn* conn, char* text, size_t length);
    void WriteToObject(Conn* conn, char* text, size_t length);
    void RouteToServer(Conn* conn, const char* text, size_t length);
    void RouteFromServer(Conn* conn, const char* text, size_t length);
    void NotifyChange(Attachments* att, Conn* except);
    void NotifyLine(Attachments* att, Conn* except, const char* prefix);
    void SendConnectLine(Attachments* att, Conn* client);
    // Answers a handle's kCopyNow line with the object as it stands.
    void SendCopyNow(Conn* conn);
    // One message now, without blocking: false when it would block, or when
    // the handle failed (it is closed then).
    bool TrySend(Conn* conn, const iovec* iov, int count);
    void Send(Conn* conn, const iovec* iov, int count);
    void SendWhole(Conn* conn);
    void Enqueue(Conn* conn, const iovec* iov, int count);
    // Tells a handle that its write was refused, with the errno.
    void Refuse(Conn* conn, int code);
    // Whether the queue holds 1/divisor of its bound in messages or bytes.
    bool QueueFull(const Conn& conn, size_t divisor) const;
    // Stops (or resumes) reading the server's clients while its queue is full.
    void HoldClients(Attachments* att, bool hold);
    void Flush(Conn* conn);
    void SetWantOut(Conn* conn, bool want);
    void Close(Conn* conn);
    void Sweep();
    // Stores the queued objects: those changed since, and those whose save
    // failed once their retry is due (or at once with `retry_now`).
    void SaveChanged(bool retry_now);
    void QueueSave(Object* object);
    void QueueDirectorySave(const std::string& path);
    // Removes an empty directory (unlink of a directory): 0 or errno.
    int RemoveDirectory(const Conn& conn, const std::string& path);
    // Answers the handles that asked for their writes to be confirmed.
    void AnswerSyncs();
    Attachments* Attach(const std::shared_ptr<Object>& object);
    bool Allowed(const Conn& conn, const Object& object, int need) const;
    bool Allowed(const Conn& conn, const Directory& dir, int need) const;
    bool Allowed(const Conn& conn, uid_t uid, gid_t gid, mode_t mode, int need) const;
    void Log(const std::string& text) const;

    BrokerOptions options_;
    ObjectTree tree_;
    std::unique_ptr<ObjectStore> store_;
    int listen_fd_ = -1;
    std::vector<std::unique_ptr<Conn>> conns_;
    std::vector<pollfd> pfds_;  // [0] listen, [1] stop, then one per conn
    bool sweep_needed_ = false;
    size_t pending_handshakes_ = 0;  // accepted handles whose open request has not come
    bool accept_paused_ = false;     // out of descriptors: not accepting until one frees
    std::unordered_map<Object*, std::unique_ptr<Attachments>> attachments_;
    std::vector<std::shared_ptr<Object>> save_queue_;
    std::vector<std::string> directory_saves_;  // directories whose records are not stored yet
    int directory_store_error_ = 0;             // errno of the last failed one, logged once
    bool fresh_saves_ = false;                  // something was queued since the last save pass
    std::chrono::steady_clock::time_point retry_at_;
    std::vector<Conn*> sync_waiters_;
    std::vector<char> buffer_;  // one message in, NUL-terminated
    std::string scratch_;       // a delta or an answer being built
};

}  // namespace ppsd

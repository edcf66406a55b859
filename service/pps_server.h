// PPSServer: the daemon's PPS server object, its command table keyed by
// PPSHash, its descriptor watchers and the registry of connected clients.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <vector>

#include "service/client_turns.h"

class PPSServer;

// A command handler: (server, registered argument, client id, msg, id, dat).
// The texts point into the read buffer and are valid only during the call;
// dat is null when the request has none.
using PPSCommandHandler = void (*)(PPSServer* server, void* arg, uint64_t client_id,
                                   const char* msg, const char* id, const char* dat);
// A watcher callback: (server, registered argument, ready descriptor).
using PPSWatcherCallback = void (*)(PPSServer* server, void* arg, int fd);

struct PPSCommand {
    PPSServer* server;
    const char* name;  // the caller's text, not copied
    uint32_t hash;
    PPSCommandHandler handler;
    void* arg;
};

struct PPSFdWatcher {
    PPSServer* server;
    int32_t fd;
    PPSWatcherCallback callback;
    void* arg;
};

inline constexpr int kMaxClientGroups = 8;

struct ClientCredentials {
    int32_t node = 0;
    int32_t pid = 0;
    int32_t uid = 0;
    int32_t gid = 0;
    uint32_t ngroups = 0;
    int32_t groups[kMaxClientGroups] = {};
};

// djb2 over the name's characters taken as signed 8-bit values.
uint32_t PPSHash(const char* name);

class PPSServer {
  public:
    PPSServer();
    virtual ~PPSServer();
    PPSServer(const PPSServer&) = delete;
    PPSServer& operator=(const PPSServer&) = delete;

    int pps_create_server_object(const char* path);
    void PPSSetDefaultHandler(PPSCommandHandler handler, void* arg);
    void PPSAddCommand(const char* name, PPSCommandHandler handler, void* arg);
    void PPSAddFdWatcher(int32_t fd, PPSWatcherCallback callback, void* arg);

    // Parses one message (modified in place) and dispatches it.
    void PPSProcess(char* text);
    void PPSDispatch(uint64_t client_id, const char* msg, const char* id, const char* dat);

    // The poll loop; returns only with 12 when the poll table cannot be made.
    int PPSRun();
    // Fills a poll table of 1 + watchers().size() entries: the server
    // descriptor, then each watcher's descriptor in order, all POLLIN.
    void PPSFillPollTable(struct pollfd* table, size_t count) const;
    // One pass of the loop over a poll table whose returned events are set
    // (by poll, or by a test): the server read first, then the watchers.
    void PPSRunOnce(struct pollfd* table, size_t count);
    // Reads and processes one message: 0, or 11 when the read would block.
    int PPSRead(int fd);
    // Reads every message the broker holds for the server now (a bounded
    // number): a client's request is queued for its turn, anything else (a
    // client come or gone) is processed at once. 11 when the first read
    // would block, else 0.
    int PPSTakeWaiting(int fd);
    // Dispatches the queued request of the next client in turn; false when
    // none waits.
    bool PPSServeNext();
    bool has_waiting_requests() const { return !waiting_.empty(); }

    void PPSReply(const char* object, uint64_t client_id, const char* res, const char* id,
                  const char* dat, int32_t err, bool json);

    int fd() const { return fd_; }
    // Serves an already open descriptor instead of opening the object
    // (tests: one end of a socketpair).
    void PPSUseDescriptor(int32_t fd) { fd_ = fd; }
    const std::map<uint64_t, std::unique_ptr<ClientCredentials>>& clients() const {
        return clients_;
    }
    const std::vector<std::unique_ptr<PPSFdWatcher>>& watchers() const { return watchers_; }

  private:
    // Object-created line: records the client's credentials; false when no
    // record could be allocated (the message is then abandoned).
    bool RegisterClient(char* object_name);
    // Object-deleted line: forgets the client.
    void UnregisterClient(const char* object_name);
    // A client's request is queued; any other message is processed now.
    void QueueOrProcess(char* text);

    PPSCommandHandler default_handler_ = nullptr;
    void* default_arg_ = nullptr;
    int32_t fd_ = 0;
    FILE* stream_ = nullptr;
    std::map<uint32_t, std::unique_ptr<PPSCommand>> commands_;
    std::vector<std::unique_ptr<PPSFdWatcher>> watchers_;
    std::map<uint64_t, std::unique_ptr<ClientCredentials>> clients_;
    ClientTurns waiting_;
};

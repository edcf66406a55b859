// PPSServer: opening the server object, the tables, parsing one message
// and dispatching it by the hash of its name.
#include "service/pps_server.h"

#include <err.h>
#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "platform/pps/pps_client.h"
#include "platform/pps/ppsparse.h"
#include "service/own_object.h"
#include "service/tavora_errors.h"
#include "service/tavora_log.h"

uint32_t PPSHash(const char* name) {
    uint32_t hash = 5381;
    for (const char* c = name; *c != '\0'; ++c) {
        // Characters are signed: a byte of 0x80 or more adds a negative amount.
        hash =
            hash * 33 + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(*c)));
    }
    return hash;
}

PPSServer::PPSServer() = default;

// Tables own their records; fd_ and stream_ stay as they are (the end of the
// process closes them).
PPSServer::~PPSServer() {
    commands_.clear();
    watchers_.clear();
    clients_.clear();
}

int PPSServer::pps_create_server_object(const char* path) {
    const int flags = O_RDWR | O_CREAT | O_TRUNC;
    // Every client may write to it; the object itself is the daemon's: one
    // made by another user is refused and made again (service/own_object.h).
    fd_ = OpenOwnObject(path, flags, 0666, "pps_create_server_object");
    if (fd_ < 0 && pps_unlink(path) == 0) {
        fd_ = OpenOwnObject(path, flags, 0666, "pps_create_server_object");
        if (fd_ < 0) return kTavoraErrNoEntry;
    }
    stream_ = (fd_ < 0) ? nullptr : ::fdopen(fd_, "r+");
    if (stream_ == nullptr) {
        if (fd_ >= 0) ::close(fd_);
        return kTavoraErrInvalid;
    }
    int fd_flags = ::fcntl(fd_, F_GETFD);
    if (fd_flags < 0 || ::fcntl(fd_, F_SETFD, fd_flags | FD_CLOEXEC) < 0) {
        ::fclose(stream_);
        stream_ = nullptr;
        return kTavoraErrInvalid;
    }
    return 0;
}

void PPSServer::PPSSetDefaultHandler(PPSCommandHandler handler, void* arg) {
    default_handler_ = handler;
    default_arg_ = arg;
}

void PPSServer::PPSAddCommand(const char* name, PPSCommandHandler handler, void* arg) {
    uint32_t hash = PPSHash(name);
    // Names are never compared: a name with the same hash replaces the entry.
    commands_[hash] = std::make_unique<PPSCommand>(PPSCommand{this, name, hash, handler, arg});
}

void PPSServer::PPSAddFdWatcher(int32_t fd, PPSWatcherCallback callback, void* arg) {
    watchers_.push_back(std::make_unique<PPSFdWatcher>(PPSFdWatcher{this, fd, callback, arg}));
}

namespace {

// The client id after the first '.' of an object name, when a digit starts
// it; `end` is set past the number.
bool ParseClientId(const char* object_name, uint64_t* client_id, char** end) {
    const char* dot = (object_name != nullptr) ? std::strchr(object_name, '.') : nullptr;
    if (dot == nullptr || !std::isdigit(static_cast<unsigned char>(dot[1]))) return false;
    *client_id = std::strtoull(dot + 1, end, 0);
    return true;
}

}  // namespace

bool PPSServer::RegisterClient(char* object_name) {
    uint64_t client_id = 0;
    char* cursor = nullptr;
    if (!ParseClientId(object_name, &client_id, &cursor)) return true;
    clients_.erase(client_id);

    char* dot = std::strchr(cursor, '.');
    if (dot == nullptr) return true;  // no credentials: no record

    ClientCredentials* record = new (std::nothrow) ClientCredentials();
    if (record == nullptr) {
        slogf(kPPSServerLogOpcode, SLOG_CRITICAL, "PPSServer::PPSProcess: malloc failed!");
        return false;
    }
    clients_[client_id].reset(record);

    bool have_gid = false;
    for (; dot != nullptr; dot = std::strchr(dot + 1, '.')) {
        char letter = dot[1];
        if (letter == '\0') break;
        int value = 0;
        if (std::sscanf(dot + 2, "%d", &value) != 1) continue;
        switch (letter) {
            case 'n':
                record->node = value;
                break;
            case 'p':
                record->pid = value;
                break;
            case 'u':
                record->uid = value;
                break;
            case 'g':
                if (!have_gid) {
                    record->gid = value;
                    have_gid = true;
                } else if (record->ngroups < kMaxClientGroups) {
                    record->groups[record->ngroups++] = value;
                } else {
                    slogf(
                        kPPSServerLogOpcode, SLOG_ERROR,
                        "PPSServer::PPSProcess: ngroup count for pid[%d] EXCEEDED, gid[%d] dropped",
                        record->pid, value);
                }
                break;
            default:
                break;  // a field this server does not keep
        }
    }
    return true;
}

void PPSServer::UnregisterClient(const char* object_name) {
    uint64_t client_id = 0;
    char* end = nullptr;
    if (ParseClientId(object_name, &client_id, &end)) clients_.erase(client_id);
}

void PPSServer::QueueOrProcess(char* text) {
    uint64_t client_id = 0;
    if (text[0] == '@') {
        std::string object_name(text + 1, std::strcspn(text + 1, "\n"));
        char* end = nullptr;
        ParseClientId(object_name.c_str(), &client_id, &end);
    }
    if (client_id == 0) return PPSProcess(text);
    if (!waiting_.Push(client_id, text))
        warnx("client %llu has %zu requests waiting; one more is dropped",
              static_cast<unsigned long long>(client_id), ClientTurns::kMaxPerClient);
}

bool PPSServer::PPSServeNext() {
    std::optional<std::string> request = waiting_.Next();
    if (!request) return false;
    PPSProcess(request->data());
    return true;
}

void PPSServer::PPSProcess(char* text) {
    uint64_t client_id = 0;
    const char* msg = nullptr;
    const char* id = nullptr;
    const char* dat = nullptr;

    char* cursor = text;
    pps_attrib_t info{};
    for (;;) {
        pps_status_t kind = ppsparse(&cursor, nullptr, nullptr, &info, 0);
        if (kind == PPS_END || kind == PPS_ERROR) break;
        switch (kind) {
            case PPS_OBJECT: {
                char* end = nullptr;
                ParseClientId(info.obj_name, &client_id, &end);
                break;
            }
            case PPS_OBJECT_CREATED:
                if (!RegisterClient(info.obj_name)) return;
                break;
            case PPS_OBJECT_DELETED:
                UnregisterClient(info.obj_name);
                break;
            case PPS_ATTRIBUTE:
                if (std::strcmp(info.attr_name, "msg") == 0) {
                    msg = info.value;
                } else if (std::strcmp(info.attr_name, "id") == 0) {
                    id = info.value;
                } else if (std::strcmp(info.attr_name, "dat") == 0) {
                    dat = info.value;
                }
                break;
            default:
                break;  // truncated objects, deleted attributes
        }
    }

    if (msg != nullptr && id != nullptr && client_id != 0) PPSDispatch(client_id, msg, id, dat);
}

void PPSServer::PPSDispatch(uint64_t client_id, const char* msg, const char* id, const char* dat) {
    auto found = commands_.find(PPSHash(msg));
    if (found != commands_.end()) {
        const PPSCommand& command = *found->second;
        command.handler(command.server, command.arg, client_id, msg, id, dat);
        return;
    }
    warn("Unhandled message %s", msg);
    if (default_handler_ != nullptr) default_handler_(this, default_arg_, client_id, msg, id, dat);
}

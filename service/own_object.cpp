#include "service/own_object.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/pps/pps_client.h"
#include "service/tavora_log.h"

namespace {

// A squatter may take the name again between our removal and our create:
// a few rounds, then the open fails.
constexpr int kAttempts = 4;

// Removes every object and directory under `dir`, and `dir` (a directory
// that should be an object).
void RemoveSquatters(const std::string& dir, const char* log_name) {
    std::vector<std::string> entries;
    if (pps_list(dir.c_str(), &entries) != 0) return;
    for (const std::string& entry : entries) {
        std::string path = dir + "/" + entry;
        if (!entry.empty() && entry.back() == '/') {
            path.pop_back();
            RemoveSquatters(path, log_name);
            continue;
        }
        struct stat info {};
        pps_stat(path.c_str(), &info);
        int removed = pps_unlink(path.c_str());
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : WARN: Tavora: %s lies where the daemon's object goes (owner %u): %s",
              log_name, path.c_str(), static_cast<unsigned>(info.st_uid),
              removed == 0 ? "removed" : "cannot remove it");
    }
    // A directory outlives its objects: it goes too, once empty.
    pps_unlink(dir.c_str());
}

}  // namespace

int OpenOwnObject(const char* path, int flags, mode_t mode, const char* log_name) {
    std::string name(path);
    name.erase(name.find('?') == std::string::npos ? name.size() : name.find('?'));
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        int fd = pps_open(path, flags, mode);
        if (fd < 0) {
            if (errno != EISDIR) return -1;
            RemoveSquatters(name, log_name);
            continue;
        }
        struct stat info {};
        if (pps_stat(name.c_str(), &info) == 0 && info.st_uid == ::geteuid() &&
            (info.st_mode & 07777) == (mode & 07777))
            return fd;
        ::close(fd);
        // Not ours (or not as we make it): whoever could write there could
        // forge what the daemon publishes, or remove it later.
        int removed = pps_unlink(name.c_str());
        int code = errno;
        slogf(kTavoraLogOpcode, kTavoraLogSeverity,
              "%30s : WARN: Tavora: refused %s: owner %u mode %o, not the daemon's: %s", log_name,
              name.c_str(), static_cast<unsigned>(info.st_uid),
              static_cast<unsigned>(info.st_mode & 07777),
              removed == 0 || code == ENOENT ? "removed" : "cannot remove it");
        if (removed != 0 && code != ENOENT) {
            errno = code;
            return -1;
        }
        flags |= O_CREAT | O_EXCL;
    }
    errno = EEXIST;
    return -1;
}

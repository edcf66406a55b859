// DropToUser: give up root for a user name or uid[:gid[,gid...]].
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <vector>

#include "service/tavora_context.h"

namespace {

// uid[:gid[,gid...]], each number read with strtol base 0 (0x hex, 0 octal).
int DropToIds(const char* user) {
    char* cursor = nullptr;
    uid_t uid = static_cast<uid_t>(std::strtol(user, &cursor, 0));
    if (*cursor == ':') {
        gid_t gid = static_cast<gid_t>(std::strtol(cursor + 1, &cursor, 0));
        if (::setgid(gid) < 0) return -1;
        long max_groups = ::sysconf(_SC_NGROUPS_MAX);
        // No ',' after the group clears the supplementary groups.
        std::vector<gid_t> groups;
        if (max_groups != 0) {
            while (*cursor == ',' && static_cast<long>(groups.size()) < max_groups)
                groups.push_back(static_cast<gid_t>(std::strtol(cursor + 1, &cursor, 0)));
        }
        if (::setgroups(groups.size(), groups.data()) < 0) return -1;
    }
    return ::setuid(uid) < 0 ? -1 : 0;
}

int DropToName(const char* user) {
    struct passwd* entry = ::getpwnam(user);
    if (entry == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const gid_t gid = entry->pw_gid;
    const uid_t uid = entry->pw_uid;
    if (::setgid(gid) < 0) return -1;
    if (::initgroups(user, gid) < 0) return -1;
    return ::setuid(uid) < 0 ? -1 : 0;
}

}  // namespace

int DropToUser(const char* user) {
    if (std::isdigit(static_cast<unsigned char>(user[0]))) return DropToIds(user);
    return DropToName(user);
}

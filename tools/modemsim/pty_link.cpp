#include "tools/modemsim/pty_link.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace modemsim {

std::string PtyLinkPath(const std::string& endpoint) {
    static const std::string kPrefix = "pty:";
    return endpoint.rfind(kPrefix, 0) == 0 ? endpoint.substr(kPrefix.size()) : std::string();
}

bool PtyLink::Open(const std::string& link, std::string* error) {
    Close();
    auto fail = [&](const char* what) {
        *error = "pty for " + link + ": " + what + ": " + std::strerror(errno);
        Close();
        return false;
    };
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (master_ < 0) return fail("posix_openpt");
    if (::grantpt(master_) != 0 || ::unlockpt(master_) != 0) return fail("unlockpt");
    char name[128];
    if (::ptsname_r(master_, name, sizeof name) != 0) return fail("ptsname");
    slave_ = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave_ < 0) return fail("open slave");
    termios tio{};
    if (::tcgetattr(slave_, &tio) != 0) return fail("tcgetattr");
    ::cfmakeraw(&tio);
    if (::tcsetattr(slave_, TCSANOW, &tio) != 0) return fail("tcsetattr");
    // Replaced in one step: a client never finds the link missing or
    // pointing at a half-made line.
    std::string staging = link + ".new";
    ::unlink(staging.c_str());
    if (::symlink(name, staging.c_str()) != 0) return fail("symlink");
    if (::rename(staging.c_str(), link.c_str()) != 0) {
        ::unlink(staging.c_str());
        return fail("rename");
    }
    link_ = link;
    return true;
}

void PtyLink::Close() {
    if (!link_.empty()) ::unlink(link_.c_str());
    link_.clear();
    if (slave_ >= 0) ::close(slave_);
    if (master_ >= 0) ::close(master_);
    slave_ = master_ = -1;
}

}  // namespace modemsim

#include "tools/devsim/publisher.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/pps/pps_client.h"

namespace devsim {

namespace {

// The lines that take `before` to `after`: changed or new ones, then the
// deletions of attributes no longer there.
std::string Changes(const Attributes& before, const Attributes& after) {
    std::string text;
    for (const auto& [name, line] : after) {
        bool same = false;
        for (const auto& [old_name, old_line] : before) {
            if (old_name == name) {
                same = old_line == line;
                break;
            }
        }
        if (!same) text += line + "\n";
    }
    for (const auto& [old_name, old_line] : before) {
        bool kept = false;
        for (const auto& [name, line] : after) kept = kept || name == old_name;
        if (!kept) text += "-" + old_name + "\n";
    }
    return text;
}

std::string OneLine(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    for (char& c : text)
        if (c == '\n') c = ' ';
    return text;
}

}  // namespace

Publisher::~Publisher() {
    for (auto& [path, fd] : fds_) ::close(fd);
}

bool Publisher::Write(const std::string& path, const std::string& text) {
    auto it = fds_.find(path);
    if (it == fds_.end()) {
        // The object is devsim's from the first write: whatever an earlier
        // run left in it goes.
        int fd = pps_open((path + "?wait").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (fd < 0) {
            std::fprintf(stderr, "devsim: cannot open %s: %s\n", path.c_str(),
                         std::strerror(errno));
            return false;
        }
        it = fds_.emplace(path, fd).first;
    }
    if (text.empty()) return true;
    if (::write(it->second, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        std::fprintf(stderr, "devsim: cannot write %s: %s\n", path.c_str(), std::strerror(errno));
        return false;
    }
    std::fprintf(stderr, "devsim: wrote %s: %s\n", path.c_str(), OneLine(text).c_str());
    return true;
}

bool Publisher::Publish(const RenderedObjects& objects) {
    bool ok = true;
    for (const auto& [path, attributes] : objects) {
        auto before = published_.find(path);
        std::string text =
            Changes(before != published_.end() ? before->second : Attributes{}, attributes);
        if (before != published_.end() && text.empty()) continue;
        if (Write(path, text)) {
            published_[path] = attributes;
        } else {
            ok = false;
        }
    }
    for (auto it = published_.begin(); it != published_.end();) {
        if (objects.count(it->first) != 0) {
            ++it;
            continue;
        }
        if (auto fd = fds_.find(it->first); fd != fds_.end()) {
            ::close(fd->second);
            fds_.erase(fd);
        }
        pps_unlink(it->first.c_str());
        std::fprintf(stderr, "devsim: removed %s\n", it->first.c_str());
        it = published_.erase(it);
    }
    return ok;
}

}  // namespace devsim

#include "platform/qnx/slogf.h"

#include <syslog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

std::atomic<int> mirror_state{-1};  // -1: not decided yet, then 0 or 1
std::mutex capture_mutex;
SlogCapture* active_capture = nullptr;

int syslog_priority(int severity) {
    switch (severity) {
        case SLOG_SHUTDOWN:
            return LOG_EMERG;
        case SLOG_CRITICAL:
            return LOG_CRIT;
        case SLOG_ERROR:
            return LOG_ERR;
        case SLOG_WARNING:
            return LOG_WARNING;
        case SLOG_NOTICE:
            return LOG_NOTICE;
        case SLOG_INFO:
            return LOG_INFO;
        default:
            return LOG_DEBUG;
    }
}

bool mirroring() {
    int state = mirror_state.load(std::memory_order_relaxed);
    if (state < 0) {
        const char* env = std::getenv("SLOGF_STDERR");
        state = (env != nullptr && std::strcmp(env, "1") == 0) ? 1 : 0;
        mirror_state.store(state, std::memory_order_relaxed);
    }
    return state == 1;
}

}  // namespace

void slog_capture_record(int opcode, int severity, const std::string& text) {
    std::lock_guard<std::mutex> hold(capture_mutex);
    if (active_capture != nullptr) {
        std::lock_guard<std::mutex> inner(active_capture->mutex_);
        active_capture->lines_.push_back({opcode, severity, text});
    }
}

void slogf_mirror_stderr(bool on) {
    mirror_state.store(on ? 1 : 0, std::memory_order_relaxed);
}

int slogf(int opcode, int severity, const char* fmt, ...) {
    char stack_buf[1024];
    va_list args;
    va_start(args, fmt);
    int needed = std::vsnprintf(stack_buf, sizeof stack_buf, fmt, args);
    va_end(args);
    if (needed < 0) return -1;
    std::string text;
    if (static_cast<size_t>(needed) < sizeof stack_buf) {
        text.assign(stack_buf, static_cast<size_t>(needed));
    } else {
        text.resize(static_cast<size_t>(needed) + 1);
        va_start(args, fmt);
        std::vsnprintf(text.data(), text.size(), fmt, args);
        va_end(args);
        text.resize(static_cast<size_t>(needed));
    }

    syslog(syslog_priority(severity), "%s", text.c_str());
    if (mirroring()) {
        // One fprintf per line keeps lines whole when threads log together.
        std::fprintf(stderr, "slog %d %d %s\n", opcode, severity, text.c_str());
    }
    slog_capture_record(opcode, severity, text);
    return needed;
}

SlogCapture::SlogCapture() {
    std::lock_guard<std::mutex> hold(capture_mutex);
    active_capture = this;
}

SlogCapture::~SlogCapture() {
    std::lock_guard<std::mutex> hold(capture_mutex);
    if (active_capture == this) active_capture = nullptr;
}

std::vector<SlogLine> SlogCapture::lines() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return lines_;
}

std::vector<std::string> SlogCapture::texts() const {
    std::lock_guard<std::mutex> hold(mutex_);
    std::vector<std::string> out;
    out.reserve(lines_.size());
    for (const auto& line : lines_) out.push_back(line.text);
    return out;
}

bool SlogCapture::contains(const std::string& text) const {
    std::lock_guard<std::mutex> hold(mutex_);
    for (const auto& line : lines_)
        if (line.text == text) return true;
    return false;
}

void SlogCapture::clear() {
    std::lock_guard<std::mutex> hold(mutex_);
    lines_.clear();
}

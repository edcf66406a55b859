// System logger of the platform: slogf(opcode, severity, format, ...).
//
// Lines go to syslog with the severity mapped to a syslog priority. They are
// mirrored to standard error when SLOGF_STDERR=1 is in the environment (or
// slogf_mirror_stderr(true) was called), which is how the demo and the
// process tests watch the daemon. Tests in the same process can capture
// every line with SlogCapture.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

// Severities as the platform numbers them.
enum SlogSeverity {
    SLOG_SHUTDOWN = 0,
    SLOG_CRITICAL = 1,
    SLOG_ERROR = 2,
    SLOG_WARNING = 3,
    SLOG_NOTICE = 4,
    SLOG_INFO = 5,
    SLOG_DEBUG1 = 6,
    SLOG_DEBUG2 = 7,
};

int slogf(int opcode, int severity, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

void slogf_mirror_stderr(bool on);

// One captured line: what slogf was given, formatted.
struct SlogLine {
    int opcode;
    int severity;
    std::string text;
};

// While an instance lives, every slogf line is also recorded in it.
// One capture at a time; safe against slogf calls from other threads.
class SlogCapture {
  public:
    SlogCapture();
    ~SlogCapture();
    SlogCapture(const SlogCapture&) = delete;
    SlogCapture& operator=(const SlogCapture&) = delete;

    std::vector<SlogLine> lines() const;
    std::vector<std::string> texts() const;
    // True when some captured line's text equals `text` exactly.
    bool contains(const std::string& text) const;
    void clear();

  private:
    friend void slog_capture_record(int, int, const std::string&);
    mutable std::mutex mutex_;
    std::vector<SlogLine> lines_;
};

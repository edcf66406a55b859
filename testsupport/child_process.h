// Real processes for tests: start a program of build/bin with its output
// captured, wait for a line, signal it, reap it.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "testsupport/eventually.h"

namespace rt::test {

// build/bin/<name>
std::string BinPath(const std::string& name);
// ../shared/captures, and whether it is there (tests skip without it).
std::string CapturesDir();
bool HaveCaptures();
// A file's whole text ("" when it cannot be read).
std::string ReadFile(const std::string& path);

// A fresh directory under $TMPDIR (or /tmp), removed with its contents.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};

class ChildProcess {
  public:
    // Starts argv[0] (a path) with the environment of this process plus
    // `env` ("NAME=value" entries override). Standard output and error go
    // to two files read back by the accessors.
    explicit ChildProcess(std::vector<std::string> argv, std::vector<std::string> env = {});
    ~ChildProcess();  // SIGKILL and reap if still running
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t pid() const { return pid_; }
    std::string Stdout() const;
    std::string Stderr() const;
    // Waits until `needle` appears in standard error (or standard output
    // with from_stdout); false on time-out or when the process ended first
    // without printing it.
    bool WaitForStderr(const std::string& needle, int timeout_ms = kEventTimeoutMs) const;
    bool WaitForStdout(const std::string& needle, int timeout_ms = kEventTimeoutMs) const;
    // Number of times `needle` occurs in standard error.
    int CountInStderr(const std::string& needle) const;

    bool Signal(int signal_number) const;
    bool Running();
    // Exit status (0-255), 128 + signal if killed, -1 on time-out.
    int Wait(int timeout_ms = kEventTimeoutMs);

  private:
    bool WaitFor(const std::string& file, const std::string& needle, int timeout_ms) const;
    pid_t pid_ = -1;
    int status_ = -1;
    bool reaped_ = false;
    std::string stdout_file_;
    std::string stderr_file_;
    TempDir dir_;
};

// A PPS broker of its own for one test: a socket and a store in a temp
// dir. Sets PPS_SOCKET in this process so pps_open reaches it, and
// env() gives the same for child processes.
class PpsBroker {
  public:
    // `options` are further ppsd options (--queue-cap, ...).
    explicit PpsBroker(std::vector<std::string> options = {});
    ~PpsBroker();
    const std::string& socket() const { return socket_; }
    const std::string& store() const { return store_; }
    std::string env() const { return "PPS_SOCKET=" + socket_; }
    ChildProcess& process() { return *process_; }
    // Stops the broker (SIGTERM) and starts it again on the same store.
    void Restart();

  private:
    void Start();
    TempDir dir_;
    std::string socket_;
    std::string store_;
    std::vector<std::string> options_;
    ChildProcess* process_ = nullptr;
};

}  // namespace rt::test

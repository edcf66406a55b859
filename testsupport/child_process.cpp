#include "testsupport/child_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace rt::test {

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

namespace {

bool WaitForPath(const std::string& path, int timeout_ms) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    struct stat st;
    while (::stat(path.c_str(), &st) != 0) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace

std::string BinPath(const std::string& name) {
    return std::string(RT_BIN_DIR) + "/" + name;
}

std::string CapturesDir() {
    return RT_CAPTURES_DIR;
}

bool HaveCaptures() {
    return std::filesystem::is_directory(CapturesDir());
}

TempDir::TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base ? base : "/tmp") + "/rt-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

ChildProcess::ChildProcess(std::vector<std::string> argv, std::vector<std::string> env) {
    stdout_file_ = dir_.file("stdout");
    stderr_file_ = dir_.file("stderr");

    // Environment: ours, with `env` entries replacing those of the same name.
    std::vector<std::string> merged;
    for (char** e = environ; *e != nullptr; ++e) {
        std::string entry = *e;
        std::string name = entry.substr(0, entry.find('='));
        bool replaced = false;
        for (const auto& over : env)
            if (over.substr(0, over.find('=')) == name) replaced = true;
        if (!replaced) merged.push_back(entry);
    }
    merged.insert(merged.end(), env.begin(), env.end());

    std::vector<char*> cargv;
    for (auto& a : argv) cargv.push_back(a.data());
    cargv.push_back(nullptr);
    std::vector<char*> cenv;
    for (auto& e : merged) cenv.push_back(e.data());
    cenv.push_back(nullptr);

    pid_ = ::fork();
    if (pid_ < 0) throw std::runtime_error("fork failed");
    if (pid_ == 0) {
        int out = ::open(stdout_file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int err = ::open(stderr_file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (out < 0 || err < 0) ::_exit(127);
        ::dup2(out, 1);
        ::dup2(err, 2);
        ::setpgid(0, 0);
        ::execve(cargv[0], cargv.data(), cenv.data());
        ::dprintf(2, "exec %s: %s\n", cargv[0], std::strerror(errno));
        ::_exit(127);
    }
}

ChildProcess::~ChildProcess() {
    if (!reaped_ && pid_ > 0) {
        // The child leads its own process group: whatever it started (gpsd
        // under gpsfake, a shell tool under the daemon) goes with it.
        ::kill(-pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

std::string ChildProcess::Stdout() const {
    return ReadFile(stdout_file_);
}
std::string ChildProcess::Stderr() const {
    return ReadFile(stderr_file_);
}

bool ChildProcess::WaitFor(const std::string& file, const std::string& needle,
                           int timeout_ms) const {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        if (ReadFile(file).find(needle) != std::string::npos) return true;
        if (std::chrono::steady_clock::now() > deadline) return false;
        if (!reaped_ && ::waitpid(pid_, nullptr, WNOHANG | WNOWAIT) != 0) {
            // Ended (or gone): one last look at what it wrote.
            siginfo_t info{};
            if (::waitid(P_PID, pid_, &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
                info.si_pid == pid_)
                return ReadFile(file).find(needle) != std::string::npos;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

bool ChildProcess::WaitForStderr(const std::string& needle, int timeout_ms) const {
    return WaitFor(stderr_file_, needle, timeout_ms);
}

bool ChildProcess::WaitForStdout(const std::string& needle, int timeout_ms) const {
    return WaitFor(stdout_file_, needle, timeout_ms);
}

int ChildProcess::CountInStderr(const std::string& needle) const {
    std::string text = Stderr();
    int count = 0;
    for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
        ++count;
    return count;
}

bool ChildProcess::Signal(int signal_number) const {
    return !reaped_ && ::kill(pid_, signal_number) == 0;
}

bool ChildProcess::Running() {
    if (reaped_) return false;
    int status = 0;
    pid_t r = ::waitpid(pid_, &status, WNOHANG);
    if (r == pid_) {
        reaped_ = true;
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return false;
    }
    return r == 0;
}

int ChildProcess::Wait(int timeout_ms) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    while (Running()) {
        if (std::chrono::steady_clock::now() > deadline) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return status_;
}

PpsBroker::PpsBroker(std::vector<std::string> options) : options_(std::move(options)) {
    socket_ = dir_.file("ppsd.sock");
    store_ = dir_.file("store");
    ::mkdir(store_.c_str(), 0755);
    ::setenv("PPS_SOCKET", socket_.c_str(), 1);
    Start();
}

PpsBroker::~PpsBroker() {
    delete process_;
}

void PpsBroker::Start() {
    ::unlink(socket_.c_str());
    std::vector<std::string> argv{BinPath("ppsd"), "--socket", socket_, "--store", store_};
    argv.insert(argv.end(), options_.begin(), options_.end());
    process_ = new ChildProcess(argv);
    if (!WaitForPath(socket_, kEventTimeoutMs))
        throw std::runtime_error("ppsd did not start: " + process_->Stderr());
}

void PpsBroker::Restart() {
    process_->Signal(SIGTERM);
    process_->Wait();
    delete process_;
    process_ = nullptr;
    Start();
}

}  // namespace rt::test

#include "config/shell_command.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "service/termination_point.h"

extern char** environ;

volatile pid_t g_running_tool = -1;

namespace {

constexpr const char* kShell = "/bin/sh";
// How often a wait for a tool looks whether it has ended.
constexpr int kShellCheckMs = 10;

// Spawns "sh -c command" with a clean signal state; its standard output
// goes to `stdout_fd` when that is not negative. True with *pid set.
bool SpawnShell(const char* command, int stdout_fd, pid_t* pid) {
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) return false;
    sigset_t empty;
    sigset_t every;
    sigemptyset(&empty);
    sigfillset(&every);
    // These two cannot be caught or ignored, so they are already default.
    sigdelset(&every, SIGKILL);
    sigdelset(&every, SIGSTOP);
    posix_spawnattr_setsigmask(&attributes, &empty);
    posix_spawnattr_setsigdefault(&attributes, &every);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (stdout_fd >= 0) posix_spawn_file_actions_adddup2(&actions, stdout_fd, STDOUT_FILENO);

    char shell_name[] = "sh";
    char dash_c[] = "-c";
    char* argv[] = {shell_name, dash_c, const_cast<char*>(command), nullptr};
    int rc = posix_spawn(pid, kShell, &actions, &attributes, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return rc == 0;
}

// Waits for the shell, letting the termination signals in meanwhile: a
// tool that hangs does not hold up the daemon's end (Cleanup logs it and
// leaves it running).
int WaitForShell(pid_t pid) {
    g_running_tool = pid;
    int status = 0;
    pid_t waited;
    for (;;) {
        waited = ::waitpid(pid, &status, WNOHANG);
        if (waited != 0 && !(waited < 0 && errno == EINTR)) break;
        PollLettingTerminationIn(nullptr, 0, kShellCheckMs);
    }
    g_running_tool = -1;
    return waited == pid ? status : -1;
}

}  // namespace

int RunShellCommand(const char* command) {
    if (command == nullptr) return -1;
    pid_t pid = -1;
    if (!SpawnShell(command, -1, &pid)) return -1;
    return WaitForShell(pid);
}

bool OpenShellPipe(const char* command, ShellPipe* pipe) {
    if (command == nullptr || pipe == nullptr) return false;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    pid_t pid = -1;
    bool started = SpawnShell(command, ends[1], &pid);
    ::close(ends[1]);
    if (!started) {
        ::close(ends[0]);
        return false;
    }
    pipe->pid = pid;
    pipe->fd = ends[0];
    return true;
}

int CloseShellPipe(ShellPipe* pipe) {
    if (pipe == nullptr || pipe->pid < 0) return -1;
    if (pipe->fd >= 0) ::close(pipe->fd);
    int status = WaitForShell(pipe->pid);
    pipe->fd = -1;
    pipe->pid = -1;
    return status;
}

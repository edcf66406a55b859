// Shell command lines run the way the C library's system and popen run
// them (/bin/sh -c), except that the shell always starts with default
// signal dispositions and an empty signal mask. The daemon blocks its
// termination signals around the poll loop, and a blocked or ignored
// signal would otherwise be inherited through exec by every tool it runs.
#pragma once

#include <sys/types.h>

// The shell being waited for (-1: none), for Cleanup to log.
extern volatile pid_t g_running_tool;

// Runs `command` and waits for it (the termination signals come in while
// it runs). -1 when the shell could not be started
// (as system reports it), otherwise the shell's wait status.
int RunShellCommand(const char* command);

// A shell command whose standard output is read through a pipe.
struct ShellPipe {
    pid_t pid = -1;
    int fd = -1;  // the reading end, close-on-exec
};

// Starts `command` with its standard output on a pipe; false when the pipe
// or the shell could not be started.
bool OpenShellPipe(const char* command, ShellPipe* pipe);
// Closes the reading end and waits for the shell: its wait status, or -1.
int CloseShellPipe(ShellPipe* pipe);

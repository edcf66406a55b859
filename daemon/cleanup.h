// Cleanup: the handler of SIGHUP, SIGTERM and SIGINT; closes what the
// daemon holds and ends the process with status 0.
#pragma once

[[noreturn]] void Cleanup(int signal_number);

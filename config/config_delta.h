// TavoraConfigObjDelta: reads one delta of diag/config and applies its
// settings in the fixed order of the actions table.
#pragma once

#include <cstdint>

class PPSServer;

// Reads config_fd of the process-wide context and applies what changed.
void TavoraConfigObjDelta();

// The watcher callback on config_fd: ignores its arguments.
void TavoraConfigWatcher(PPSServer* server, void* arg, int fd);

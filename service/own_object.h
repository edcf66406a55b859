// Opening an object that only the daemon may own: its status objects and
// its server object. Any local user can create PPS objects, so one may
// create such an object before the daemon does (after a broker restart,
// say) with a mode that lets it write there too, or place objects under its
// name so that the name is a directory and the daemon's open fails.
#pragma once

#include <sys/types.h>

// pps_open(path, flags, mode), then: an object there that is not the
// daemon's (another owner, or another mode than `mode`) is refused and
// logged under `log_name`, removed and created again with O_EXCL; objects
// under the name are removed (each logged) and the open tried again. The
// descriptor, or -1 with errno (EPERM when a foreign object cannot be
// removed, as a daemon that is not root cannot).
int OpenOwnObject(const char* path, int flags, mode_t mode, const char* log_name);

// waitfor(path, max_ms, poll_ms): wait until `path` exists.
// A /pps path is looked up through the PPS broker; any other path on the
// file system. Returns 0 once it exists, -1 with errno ETIMEDOUT otherwise.
#pragma once

int waitfor(const char* path, int max_ms, int poll_ms);

// Opening PPS objects. Every /pps path goes through the PPS broker (ppsd):
// pps_open returns a real descriptor (one connected SOCK_SEQPACKET unix
// socket, one write = one message) that read, write, poll and close work
// on, as if the object were a file.
//
//   int fd = pps_open("/pps/services/x/status?delta,wait", O_RDWR | O_CREAT, 0640);
//
// Options after '?', comma-separated: delta, wait, server, nopersist,
// critical. Flags: O_RDONLY/O_WRONLY/O_RDWR, O_CREAT (with mode), O_TRUNC,
// O_CLOEXEC, O_NONBLOCK. Errors come back as -1 with errno as a file open
// would set it: ENOENT (missing without O_CREAT), EACCES (mode forbids),
// ENOTDIR, EINVAL (bad option), ECONNREFUSED/ENOENT when no broker runs.
//
// The broker's socket: $PPS_SOCKET, else kPpsDefaultSocket.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

inline constexpr const char* kPpsDefaultSocket = "/tmp/ppsd.sock";

std::string pps_socket_path();

int pps_open(const char* path, int flags, mode_t mode = 0);
// Reads one message from a PPS descriptor, as read does, except that a
// descriptor whose broker has gone fails with EBADF, as it does on the
// device when the PPS service behind it is gone. A plain read of a socket
// would return 0 for ever and look like an empty message. The first read
// of a "?delta" handle gives the object as it stands at that read, as on
// the device: what the handle's own writes since its open deleted is not
// in it (a plain read gets the copy taken at the open).
ssize_t pps_read(int fd, void* buffer, size_t size);
// Removes an object (and its persisted copy). 0, or -1 with errno.
int pps_unlink(const char* path);
// True if the object (or directory) exists.
bool pps_exists(const char* path);
// An object's or directory's owner, group and mode (st_uid, st_gid, st_mode
// with S_IFREG or S_IFDIR), as stat gives them for a file.
// 0, or -1 with errno (ENOENT).
int pps_stat(const char* path, struct stat* info);
// Waits until everything written on `fd` so far is applied by the broker
// and, for a persistent object, stored: 0 then; else the errno why not
// (ENOSPC when the store is full: the write is kept and stored later if the
// broker can, but it is not confirmed), ECONNRESET when the broker went away
// before it confirmed, ETIMEDOUT after `timeout_ms`, or the errno of a
// write the broker refused on the way (EFBIG, EMSGSIZE). For a handle that
// is sent nothing else (O_WRONLY): other messages are read and dropped.
int pps_sync(int fd, int timeout_ms);

#include <vector>

// The entries of a directory, sorted; directories end in '/'. 0, or -1 with
// errno (ENOENT for a missing directory, ENOTDIR for an object).
int pps_list(const char* dir, std::vector<std::string>* entries);
// Opens a server object as one of its clients, and only if its server has it
// open now (ENXIO otherwise): a request then never lands in the attributes
// of a plain object. Used by `ppsctl call`.
int pps_open_client(const char* path, int flags);

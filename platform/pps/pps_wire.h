// The little protocol between the PPS client layer (pps_client.cpp) and the
// broker (ppsd). Every request is one new connection to the broker's
// AF_UNIX SOCK_SEQPACKET socket; its first message says what it wants:
//
//   "open <flags> <mode> <extras>\n<path?options>"  flags decimal (O_ACCMODE,
//        O_CREAT, O_EXCL, O_TRUNC), mode octal, extras decimal (kOpenExtra*)
//   "stat\n<path>"     does the object or directory exist
//   "unlink\n<path>"   remove an object (and its stored copy)
//   "list\n<path>"     the entries of a directory
//
// The broker answers with one message: the errno as decimal text, "0" on
// success; a list answer goes on with one entry per line, directories with a
// trailing '/'. An open answer that goes on with kCopyFollows tells the
// client that the object's current text is the next message, already on its
// way: the client waits for it, so a read right after the open finds it (as
// a read of a freshly opened PPS file does). After a successful open the
// connection IS the object: each
// message the client writes is one PPS write, each message it reads is one
// PPS read. stat, unlink and list connections are closed after the answer.
#pragma once

#include <cstddef>

namespace pps_wire {

inline constexpr const char* kOpenVerb = "open";
inline constexpr const char* kStatVerb = "stat";
inline constexpr const char* kUnlinkVerb = "unlink";
inline constexpr const char* kListVerb = "list";

// Open only as a client of a server object that has its server now; ENXIO
// otherwise (so a request never lands in a plain object's attributes).
inline constexpr int kOpenExtraRequireServer = 1;

// The open answer's extra line when the object's current copy follows.
inline constexpr const char* kCopyFollows = "copy";

// Largest message the broker accepts from a client (larger ones are dropped).
inline constexpr size_t kMaxMessage = 64 * 1024;

}  // namespace pps_wire

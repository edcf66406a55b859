// The little protocol between the PPS client layer (pps_client.cpp) and the
// broker (ppsd). Every request is one new connection to the broker's
// AF_UNIX SOCK_SEQPACKET socket; its first message says what it wants:
//
//   "open <flags> <mode> <extras>\n<path?options>"  flags decimal (O_ACCMODE,
//        O_CREAT, O_EXCL, O_TRUNC), mode octal, extras decimal (kOpenExtra*)
//   "stat\n<path>"     does the object or directory exist; for an object the
//                      answer goes on with "<uid> <gid> <octal mode>"
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

// The first read of a "?delta" handle through pps_read gives the object as
// it stands at that read: the client sends this line on the handle, and the
// broker answers it with this line followed by the object's current text.
// Everything the handle was sent before that answer is older than it.
inline constexpr const char* kCopyNow = "!copy\n";

// Limits. A write longer than kMaxMessage is refused with EMSGSIZE; a write
// that would make an object's attribute lines longer than kMaxObject is
// refused with EFBIG (the object is left as it was); a path longer than
// kMaxName bytes fails to open with ENAMETOOLONG, and one holding a control
// character (below 0x20, or 0x7F) with EINVAL.
inline constexpr size_t kMaxMessage = 64 * 1024;
inline constexpr size_t kMaxObject = 64 * 1024;
inline constexpr size_t kMaxName = 255;
// The largest message a handle can be sent: a whole object with its
// "#@name" line. A reader's buffer of this size never cuts a message.
inline constexpr size_t kMaxRead = kMaxObject + kMaxName + 8;

// What the broker sends a handle whose write it refused, followed by the
// errno in decimal and a newline ("!error 27\n"). A writer that wants to
// know shuts its sending side down and reads until the broker closes.
inline constexpr const char* kErrorNotice = "!error ";

// A writer that wants its writes confirmed sends kSyncRequest on the handle;
// the broker answers kSyncAnswer and an errno in decimal ("!synced 0\n") once
// everything the handle wrote before is applied and, when the object is
// persistent, stored. Anything else (a closed connection) confirms nothing.
inline constexpr const char* kSyncRequest = "!sync\n";
inline constexpr const char* kSyncAnswer = "!synced ";

}  // namespace pps_wire

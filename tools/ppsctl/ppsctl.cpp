// ppsctl: PPS objects from a shell, through the broker (ppsd).
//
//   ppsctl read PATH                 print an object's text
//   ppsctl write PATH LINE...        write attribute lines as one message
//   ppsctl watch PATH                print each change as it comes
//   ppsctl call PATH LINE...         send a request to a server object, print the reply
//   ppsctl ls [PATH]                 list objects and directories
//
// Exit status: 0 success, 1 error, 2 usage, 3 time-out.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/pps/pps_client.h"
#include "platform/pps/pps_wire.h"
#include "platform/pps/ppsparse.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitError = 1;
constexpr int kExitUsage = 2;
constexpr int kExitTimeout = 3;

using Clock = std::chrono::steady_clock;

// How long a write waits for the broker to confirm it.
constexpr int kConfirmWaitMs = 5000;
// Objects ppsctl creates: the owner and its group may write, nobody else
// (e.g. diag/config, which the screen's group writes).
constexpr mode_t kDefaultMode = 0660;

const char* const kMainHelp =
    "usage: ppsctl VERB [OPTIONS] ...\n"
    "\n"
    "PPS objects through the broker at $PPS_SOCKET (default /tmp/ppsd.sock).\n"
    "\n"
    "  read PATH                 print an object's text\n"
    "  write [--mode M] PATH LINE...\n"
    "                            write attribute lines as one message (created if missing)\n"
    "  watch [--count N] [--timeout SEC] [--initial] PATH\n"
    "                            print each change as it comes\n"
    "  call [--timeout SEC] PATH LINE...\n"
    "                            send a request to a server object, print the reply\n"
    "  ls [PATH]                 list objects and directories (default /pps)\n"
    "\n"
    "LINE is PPS text: name::value (string), name:n:5 (number), name:b:true,\n"
    "name:json:{...}, -name (delete). `ppsctl VERB --help` for one verb.\n"
    "Exit status: 0 success, 1 error, 2 usage, 3 time-out.\n";

const char* HelpFor(const std::string& verb) {
    if (verb == "read")
        return "usage: ppsctl read PATH\n\nPrints the object's text: \"@name\" and one line per "
               "attribute.\n";
    if (verb == "write")
        return "usage: ppsctl write [--mode OCTAL] PATH LINE...\n\n"
               "Writes the lines as one message; the object is created (mode 0660, owner\n"
               "and group may write, unless --mode) if it is missing. Exits 0 only once the\n"
               "broker confirms the write applied and stored; a write it cannot store\n"
               "(a full disk) exits 1. A LINE may start with '-' (a deletion): options go\n"
               "before PATH.\n";
    if (verb == "watch")
        return "usage: ppsctl watch [--count N] [--timeout SEC] [--initial] PATH\n\n"
               "Prints each change of the object as the broker delivers it: \"@name\" and\n"
               "the changed lines (\"-name\" for a deletion; \"#@name\" when the object was\n"
               "emptied or resent whole). --initial prints the whole object first.\n"
               "Stops after N changes (--count) or after SEC seconds (--timeout); a\n"
               "time-out before N changes exits 3.\n";
    if (verb == "call")
        return "usage: ppsctl call [--timeout SEC] PATH LINE...\n\n"
               "Writes the lines to a server object as one of its clients and prints the\n"
               "reply (the one with the same id attribute, if the request has one).\n"
               "Waits --timeout seconds (default 5); no reply exits 3.\n";
    if (verb == "ls")
        return "usage: ppsctl ls [PATH]\n\nLists a directory (default /pps); directories end in "
               "'/'.\n";
    return nullptr;
}

int Usage(const std::string& message) {
    std::fprintf(stderr, "ppsctl: %s\n(ppsctl --help for usage)\n", message.c_str());
    return kExitUsage;
}

// A failure of the broker call: the errno as a file tool would say it, or a
// clearer word when the broker is not there at all.
int Fail(const std::string& path, int code) {
    if (code == ECONNREFUSED || (code == ENOENT && !path.empty())) {
        struct stat st;
        std::string socket = pps_socket_path();
        if (code == ECONNREFUSED || ::stat(socket.c_str(), &st) != 0) {
            std::fprintf(stderr, "ppsctl: no PPS broker at %s (is ppsd running? PPS_SOCKET)\n",
                         socket.c_str());
            return kExitError;
        }
    }
    if (code == ENXIO) {
        std::fprintf(stderr, "ppsctl: %s: no server has this object open\n", path.c_str());
        return kExitError;
    }
    std::fprintf(stderr, "ppsctl: %s: %s\n", path.c_str(), std::strerror(code));
    return kExitError;
}

bool ParseSeconds(const char* text, double* out) {
    char* end = nullptr;
    double value = std::strtod(text, &end);
    if (end == text || *end != '\0' || !std::isfinite(value) || value < 0) return false;
    *out = value;
    return true;
}

// Reads one message, waiting at most until `deadline` (none: for ever).
// 1 got one, 0 time-out, -1 error (errno), -2 the broker closed it.
int ReadMessage(int fd, std::string* out, const Clock::time_point* deadline) {
    // One byte more than any message the broker sends: a longer one would be
    // cut, and is reported rather than printed in part.
    std::vector<char> buffer(pps_wire::kMaxRead + 1);
    for (;;) {
        int timeout = -1;
        if (deadline != nullptr) {
            auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - Clock::now())
                    .count();
            if (left <= 0) return 0;
            timeout = static_cast<int>(left);
        }
        pollfd entry{fd, POLLIN, 0};
        int ready = ::poll(&entry, 1, timeout);
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) return -1;
        if (ready == 0) return 0;
        ssize_t n = ::recv(fd, buffer.data(), buffer.size(), MSG_TRUNC);
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
        if (n < 0) return -1;
        if (n == 0) return -2;
        if (static_cast<size_t>(n) > buffer.size()) {
            errno = EMSGSIZE;
            return -1;
        }
        out->assign(buffer.data(), static_cast<size_t>(n));
        return 1;
    }
}

void Print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (!text.empty() && text.back() != '\n') std::fputc('\n', stdout);
    std::fflush(stdout);
}

std::string JoinLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) text += line + "\n";
    return text;
}

// The value of attribute `name` in a PPS message, if any.
bool FindAttribute(const std::string& message, const char* name, std::string* value) {
    std::string copy = message;
    char* cursor = copy.data();
    pps_attrib_t info{};
    for (;;) {
        pps_status_t kind = ppsparse(&cursor, nullptr, nullptr, &info, 0);
        if (kind == PPS_END || kind == PPS_ERROR) return false;
        if (kind == PPS_ATTRIBUTE && std::strcmp(info.attr_name, name) == 0) {
            *value = info.value;
            return true;
        }
    }
}

int CmdRead(const std::vector<std::string>& args) {
    if (args.size() != 1) return Usage("read wants one PATH");
    const std::string& path = args[0];
    int fd = pps_open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return Fail(path, errno);
    // The whole object follows the open at once.
    std::string text;
    auto deadline = Clock::now() + std::chrono::seconds(5);
    int got = ReadMessage(fd, &text, &deadline);
    int saved = errno;
    ::close(fd);
    if (got == 1) {
        Print(text);
        return kExitOk;
    }
    if (got == 0) {
        std::fprintf(stderr, "ppsctl: %s: the broker sent nothing\n", path.c_str());
        return kExitTimeout;
    }
    return got == -2 ? Fail(path, ECONNRESET) : Fail(path, saved);
}

int CmdWrite(std::vector<std::string> args) {
    mode_t mode = kDefaultMode;
    while (!args.empty() && args[0].rfind("--", 0) == 0) {
        if (args[0] == "--mode" && args.size() >= 2) {
            char* end = nullptr;
            unsigned long m = std::strtoul(args[1].c_str(), &end, 8);
            if (args[1].empty() || *end != '\0' || m > 07777)
                return Usage("--mode wants an octal mode");
            mode = static_cast<mode_t>(m);
            args.erase(args.begin(), args.begin() + 2);
        } else if (args[0] == "--") {
            args.erase(args.begin());
            break;
        } else {
            return Usage("write: unknown option " + args[0]);
        }
    }
    if (args.size() < 2) return Usage("write wants PATH and at least one LINE");
    const std::string path = args[0];
    std::string message = JoinLines({args.begin() + 1, args.end()});
    if (message.size() > pps_wire::kMaxMessage) return Fail(path, EMSGSIZE);
    int fd = pps_open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, mode);
    if (fd < 0) return Fail(path, errno);
    ssize_t n = ::write(fd, message.data(), message.size());
    int saved = errno;
    if (n != static_cast<ssize_t>(message.size())) {
        ::close(fd);
        return Fail(path, n < 0 ? saved : EIO);
    }
    // The broker applies the write after it has returned: only its explicit
    // confirmation (applied, and stored when the object persists) is success;
    // a broker that closes or dies first has confirmed nothing.
    int code = pps_sync(fd, kConfirmWaitMs);
    ::close(fd);
    if (code == 0) return kExitOk;
    if (code == ETIMEDOUT) {
        std::fprintf(stderr, "ppsctl: %s: the broker did not confirm the write\n", path.c_str());
        return kExitTimeout;
    }
    if (code == ECONNRESET) {
        std::fprintf(stderr, "ppsctl: %s: the broker went away before it confirmed the write\n",
                     path.c_str());
        return kExitError;
    }
    if (code == ENOSPC || code == EDQUOT || code == EIO) {
        std::fprintf(stderr,
                     "ppsctl: %s: the broker could not store the write: %s (it keeps trying; "
                     "not confirmed)\n",
                     path.c_str(), std::strerror(code));
        return kExitError;
    }
    return Fail(path, code);
}

int CmdWatch(const std::vector<std::string>& args) {
    long count = -1;
    double timeout = -1;
    bool initial = false;
    std::string path;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--count" && i + 1 < args.size()) {
            char* end = nullptr;
            count = std::strtol(args[++i].c_str(), &end, 10);
            if (*end != '\0' || count <= 0) return Usage("--count wants a positive number");
        } else if (a == "--timeout" && i + 1 < args.size()) {
            if (!ParseSeconds(args[++i].c_str(), &timeout)) return Usage("--timeout wants seconds");
        } else if (a == "--initial") {
            initial = true;
        } else if (a.rfind("--", 0) == 0) {
            return Usage("watch: unknown option " + a);
        } else if (path.empty()) {
            path = a;
        } else {
            return Usage("watch wants one PATH");
        }
    }
    if (path.empty()) return Usage("watch wants a PATH");
    std::string open_path = path + (path.find('?') == std::string::npos ? "?delta" : ",delta");
    int fd = pps_open(open_path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return Fail(path, errno);
    Clock::time_point deadline =
        Clock::now() + std::chrono::milliseconds(static_cast<long>(timeout * 1000));
    const Clock::time_point* limit = timeout >= 0 ? &deadline : nullptr;
    std::string text;
    bool first = true;
    long seen = 0;
    int status = kExitOk;
    while (count < 0 || seen < count) {
        int got = ReadMessage(fd, &text, limit);
        if (got == 0) {
            if (count > 0) {
                std::fprintf(stderr, "ppsctl: %s: %ld of %ld changes before the time-out\n",
                             path.c_str(), seen, count);
                status = kExitTimeout;
            }
            break;
        }
        if (got < 0) {
            status = Fail(path, got == -2 ? ECONNRESET : errno);
            break;
        }
        if (first) {
            // The first message of a delta handle is the whole object.
            first = false;
            if (initial) Print(text);
            continue;
        }
        Print(text);
        ++seen;
    }
    ::close(fd);
    return status;
}

int CmdCall(std::vector<std::string> args) {
    double timeout = 5;
    while (!args.empty() && args[0].rfind("--", 0) == 0) {
        if (args[0] == "--timeout" && args.size() >= 2) {
            if (!ParseSeconds(args[1].c_str(), &timeout)) return Usage("--timeout wants seconds");
            args.erase(args.begin(), args.begin() + 2);
        } else if (args[0] == "--") {
            args.erase(args.begin());
            break;
        } else {
            return Usage("call: unknown option " + args[0]);
        }
    }
    if (args.size() < 2) return Usage("call wants PATH and at least one LINE");
    const std::string path = args[0];
    std::string request = JoinLines({args.begin() + 1, args.end()});
    std::string request_id;
    bool match_id = FindAttribute(request, "id", &request_id);
    int fd = pps_open_client(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) return Fail(path, errno);
    if (::write(fd, request.data(), request.size()) != static_cast<ssize_t>(request.size())) {
        int saved = errno;
        ::close(fd);
        return Fail(path, saved);
    }
    auto deadline = Clock::now() + std::chrono::milliseconds(static_cast<long>(timeout * 1000));
    std::string reply;
    for (;;) {
        int got = ReadMessage(fd, &reply, &deadline);
        if (got == 0) {
            ::close(fd);
            std::fprintf(stderr, "ppsctl: %s: no reply within %g s\n", path.c_str(), timeout);
            return kExitTimeout;
        }
        if (got < 0) {
            int saved = got == -2 ? ECONNRESET : errno;
            ::close(fd);
            return Fail(path, saved);
        }
        std::string reply_id;
        if (!match_id || (FindAttribute(reply, "id", &reply_id) && reply_id == request_id)) break;
    }
    ::close(fd);
    Print(reply);
    return kExitOk;
}

int CmdLs(const std::vector<std::string>& args) {
    if (args.size() > 1) return Usage("ls wants at most one PATH");
    std::string path = args.empty() ? "/pps" : args[0];
    std::vector<std::string> entries;
    if (pps_list(path.c_str(), &entries) != 0) return Fail(path, errno);
    for (const auto& entry : entries) std::printf("%s\n", entry.c_str());
    return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fputs(kMainHelp, stderr);
        return kExitUsage;
    }
    std::string verb = argv[1];
    if (verb == "--help" || verb == "-h" || verb == "help") {
        std::fputs(kMainHelp, stdout);
        return kExitOk;
    }
    std::vector<std::string> args(argv + 2, argv + argc);
    const char* help = HelpFor(verb);
    if (help == nullptr) return Usage("unknown verb '" + verb + "'");
    for (const auto& a : args) {
        if (a == "--") break;
        if (a == "--help" || a == "-h") {
            std::fputs(help, stdout);
            return kExitOk;
        }
    }
    if (verb == "read") return CmdRead(args);
    if (verb == "write") return CmdWrite(args);
    if (verb == "watch") return CmdWatch(args);
    if (verb == "call") return CmdCall(args);
    return CmdLs(args);
}

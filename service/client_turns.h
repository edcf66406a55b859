// The requests waiting for the server, one queue per client, taken in
// turns: one request of each client that has any, then round again. A client
// that sends a hundred requests at once waits for its own, never makes the
// others wait behind them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>

class ClientTurns {
  public:
    // More than this many waiting requests of one client are refused, so a
    // client that never reads its answers cannot grow the daemon without end.
    // A refused request is dropped unanswered, like one without an id: a
    // reply means "your report is in its status object" and never carries
    // an err, so any reply would be taken for a report written.
    static constexpr size_t kMaxPerClient = 64;

    // Queues a request of `client`; false when that client already has
    // kMaxPerClient waiting.
    bool Push(uint64_t client, std::string request);
    // The next request in turn, or none when nothing waits.
    std::optional<std::string> Next();
    bool empty() const { return turns_.empty(); }

  private:
    std::map<uint64_t, std::deque<std::string>> waiting_;
    // Clients with requests waiting, the next one to serve first.
    std::deque<uint64_t> turns_;
};

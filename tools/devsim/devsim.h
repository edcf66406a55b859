// devsim: the phone's other services in one PPS client of the broker. It
// publishes the plain objects the scenario describes, serves the three
// control objects, and runs the scenario's timed events, all from one
// poll loop; delayed answers and reports wait there as timers.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/devsim/answers.h"
#include "tools/devsim/publisher.h"
#include "tools/devsim/request.h"

namespace devsim {

// Control objects devsim can serve, the scenario section that configures
// each, and what it answers.
struct ServedObject {
    const char* path;
    const char* section;
    Answer (*answer)(const nlohmann::json& state, const Request& request);
};

class Devsim {
  public:
    // The scenario files, merged over the built-in scenario in this order.
    explicit Devsim(std::vector<std::string> scenario_paths);
    ~Devsim();
    Devsim(const Devsim&) = delete;
    Devsim& operator=(const Devsim&) = delete;

    // Loads the scenario, publishes its objects and opens the served
    // control objects; false with a message when any of it fails.
    bool Start(std::string* error);
    // Serves until SIGTERM or SIGINT arrives on `signal_fd` (a signalfd);
    // SIGHUP reloads the scenario. Returns the exit status: 0 after a
    // signal, 1 when the broker went away.
    int Run(int signal_fd);

  private:
    using Clock = std::chrono::steady_clock;

    bool Apply(const nlohmann::json& scenario, std::string* error);
    void Reload();
    void ScheduleEvents();
    // Reads and handles one message; false when the broker has gone.
    bool Serve(size_t index);
    void Handle(size_t index, const Request& request);
    void Reply(size_t index, const Request& request, const Answer& answer);
    void Change(const nlohmann::json& patch);
    void RunDueTimers();
    int NextTimeoutMs() const;

    std::vector<std::string> scenario_paths_;
    nlohmann::json state_;
    Publisher publisher_;
    std::vector<int> server_fds_;  // one per kServedObjects entry, -1 when not served
    std::multimap<Clock::time_point, std::function<void()>> timers_;
    // Events of an older scenario are dropped when they come due.
    unsigned generation_ = 0;
};

}  // namespace devsim

#include "tools/devsim/devsim.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/pps/pps_client.h"
#include "platform/pps/pps_wire.h"
#include "tools/devsim/scenario.h"

namespace devsim {

namespace {

using nlohmann::json;

const ServedObject kServedObjects[] = {
    {"/pps/services/cds/vesta/control", "connection_service", AnswerConnectionService},
    {"/pps/services/omadm/radio/control", "omadm", AnswerOmadm},
    {"/pps/services/radioctrl/modem0/control", "radio_control", AnswerRadioControl},
};
constexpr size_t kServedCount = sizeof kServedObjects / sizeof kServedObjects[0];

constexpr long kLatestEventMs = 365L * 24 * 3600 * 1000;

bool Served(const json& state, const char* section) {
    auto it = state.find(section);
    if (it == state.end() || !it->is_object()) return false;
    auto serve = it->find("serve");
    return serve == it->end() || *serve != false;
}

// " line line ...", for the log.
std::string JoinLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) text += " " + line;
    return text;
}

}  // namespace

Devsim::Devsim(std::vector<std::string> scenario_paths)
    : scenario_paths_(std::move(scenario_paths)), server_fds_(kServedCount, -1) {}

Devsim::~Devsim() {
    for (int fd : server_fds_)
        if (fd >= 0) ::close(fd);
}

bool Devsim::Start(std::string* error) {
    json scenario;
    if (!LoadScenario(scenario_paths_, &scenario, error)) return false;
    return Apply(scenario, error);
}

// Makes `scenario` the live state: objects republished, control objects
// opened or closed as it serves them, its events scheduled anew.
bool Devsim::Apply(const json& scenario, std::string* error) {
    state_ = scenario;
    if (!publisher_.Publish(RenderObjects(state_))) {
        *error = "cannot publish the scenario's objects (is ppsd running? PPS_SOCKET)";
        return false;
    }
    for (size_t i = 0; i < kServedCount; ++i) {
        bool wanted = Served(state_, kServedObjects[i].section);
        if (wanted && server_fds_[i] < 0) {
            std::string path = std::string(kServedObjects[i].path) + "?server";
            server_fds_[i] = pps_open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
            if (server_fds_[i] < 0) {
                *error = "cannot serve " + path + ": " + std::strerror(errno);
                return false;
            }
            std::fprintf(stderr, "devsim: serving %s\n", kServedObjects[i].path);
        } else if (!wanted && server_fds_[i] >= 0) {
            ::close(server_fds_[i]);
            server_fds_[i] = -1;
            std::fprintf(stderr, "devsim: no longer serving %s\n", kServedObjects[i].path);
        }
    }
    ScheduleEvents();
    return true;
}

void Devsim::Reload() {
    json scenario;
    std::string error;
    if (!LoadScenario(scenario_paths_, &scenario, &error)) {
        std::fprintf(stderr, "devsim: reload failed, keeping the old scenario: %s\n",
                     error.c_str());
        return;
    }
    std::fprintf(stderr, "devsim: reloading the scenario\n");
    if (!Apply(scenario, &error)) std::fprintf(stderr, "devsim: %s\n", error.c_str());
}

void Devsim::ScheduleEvents() {
    unsigned generation = ++generation_;
    auto events = state_.find("events");
    if (events == state_.end() || !events->is_array()) return;
    Clock::time_point start = Clock::now();
    for (const json& event : *events) {
        if (!event.is_object()) continue;
        auto at = event.find("at_ms");
        long at_ms = at != event.end() && at->is_number_integer() ? at->get<long>() : 0;
        // Bounded so the due time cannot overflow; a year is "never" on a bench.
        at_ms = std::clamp(at_ms, 0L, kLatestEventMs);
        json patch = event.value("patch", json());
        std::string say = event.contains("say") && event["say"].is_string()
                              ? event["say"].get<std::string>()
                              : patch.dump();
        timers_.emplace(
            start + std::chrono::milliseconds(at_ms), [this, generation, at_ms, patch, say] {
                if (generation != generation_) return;
                std::fprintf(stderr, "devsim: event at %ld ms: %s\n", at_ms, say.c_str());
                Change(patch);
            });
    }
}

// State changes are merge patches, from answers and events alike.
void Devsim::Change(const json& patch) {
    if (!patch.is_object()) return;
    state_.merge_patch(patch);
    publisher_.Publish(RenderObjects(state_));
}

bool Devsim::Serve(size_t index) {
    std::vector<char> buffer(pps_wire::kMaxMessage + 1);
    ssize_t n = ::read(server_fds_[index], buffer.data(), pps_wire::kMaxMessage);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return true;
    if (n <= 0) {
        std::fprintf(stderr, "devsim: lost %s: %s\n", kServedObjects[index].path,
                     n == 0 ? "the broker closed it" : std::strerror(errno));
        return false;
    }
    std::optional<Request> request =
        ParseRequest(std::string_view(buffer.data(), static_cast<size_t>(n)));
    if (request) Handle(index, *request);
    return true;
}

void Devsim::Handle(size_t index, const Request& request) {
    std::fprintf(stderr, "devsim: rx %s client %llu: %s\n", kServedObjects[index].path,
                 static_cast<unsigned long long>(request.client_id), request.summary.c_str());
    Answer answer = kServedObjects[index].answer(state_, request);
    if (answer.delay_ms > 0) {
        timers_.emplace(Clock::now() + std::chrono::milliseconds(answer.delay_ms),
                        [this, index, request, answer] { Reply(index, request, answer); });
    } else {
        Reply(index, request, answer);
    }
    if (answer.patch.is_null()) return;
    if (answer.patch_delay_ms > 0) {
        json patch = answer.patch;
        timers_.emplace(Clock::now() + std::chrono::milliseconds(answer.patch_delay_ms),
                        [this, patch] { Change(patch); });
    } else {
        Change(answer.patch);
    }
}

void Devsim::Reply(size_t index, const Request& request, const Answer& answer) {
    int fd = server_fds_[index];
    if (fd < 0) return;
    std::string text = RenderReply(request, answer.lines);
    if (::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        std::fprintf(stderr, "devsim: reply to %s client %llu lost: %s\n",
                     kServedObjects[index].path, static_cast<unsigned long long>(request.client_id),
                     std::strerror(errno));
        return;
    }
    std::fprintf(stderr, "devsim: tx %s client %llu: res::%s id::%s%s\n",
                 kServedObjects[index].path, static_cast<unsigned long long>(request.client_id),
                 request.msg.c_str(), request.id.c_str(), JoinLines(answer.lines).c_str());
}

void Devsim::RunDueTimers() {
    Clock::time_point now = Clock::now();
    while (!timers_.empty() && timers_.begin()->first <= now) {
        std::function<void()> run = std::move(timers_.begin()->second);
        timers_.erase(timers_.begin());
        run();
    }
}

int Devsim::NextTimeoutMs() const {
    if (timers_.empty()) return -1;
    auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(timers_.begin()->first - Clock::now())
            .count();
    return left <= 0 ? 0 : static_cast<int>(left + 1);
}

int Devsim::Run(int signal_fd) {
    for (;;) {
        std::vector<pollfd> entries{{signal_fd, POLLIN, 0}};
        std::vector<size_t> served;
        for (size_t i = 0; i < kServedCount; ++i) {
            if (server_fds_[i] < 0) continue;
            entries.push_back({server_fds_[i], POLLIN, 0});
            served.push_back(i);
        }
        int ready = ::poll(entries.data(), entries.size(), NextTimeoutMs());
        if (ready < 0 && errno != EINTR) {
            std::fprintf(stderr, "devsim: poll: %s\n", std::strerror(errno));
            return 1;
        }
        if (ready > 0 && (entries[0].revents & POLLIN) != 0) {
            signalfd_siginfo info{};
            if (::read(signal_fd, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
                if (info.ssi_signo == SIGHUP) {
                    Reload();
                } else {
                    std::fprintf(stderr, "devsim: stopped\n");
                    return 0;
                }
            }
        }
        for (size_t k = 1; ready > 0 && k < entries.size(); ++k) {
            if ((entries[k].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
            // Without the broker there is nobody left to serve.
            if (!Serve(served[k - 1])) return 1;
        }
        RunDueTimers();
    }
}

}  // namespace devsim

// Server-Sent Events for the web screen: every page that listens gets each
// event published after it subscribed, through a queue of its own. A page
// that stops reading loses its oldest events rather than growing the queue.
// The latest event of each key (one per report, the configuration, the
// health) is kept, so a page that connects is filled at once.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace fieldtest {

class EventHub {
  public:
    static constexpr size_t kQueueLimit = 256;

    class Subscription {
      public:
        // The next event as an SSE message, or none after `timeout` or once
        // the hub has closed.
        std::optional<std::string> Next(std::chrono::milliseconds timeout);
        bool closed();

      private:
        friend class EventHub;
        explicit Subscription(EventHub& hub) : hub_(hub) {}
        EventHub& hub_;
        std::deque<std::string> queue_;
    };

    // `key` names what the event replaces for a new page; `event` is the
    // SSE event name and `data` one line of JSON.
    void Publish(const std::string& key, const std::string& event, const std::string& data);
    // A new listener, with the latest event of every key queued.
    std::shared_ptr<Subscription> Subscribe();
    void Unsubscribe(const std::shared_ptr<Subscription>& subscription);
    // Wakes every listener; Next returns none from now on.
    void Close();
    size_t subscribers();

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool closed_ = false;
    std::vector<std::shared_ptr<Subscription>> subscriptions_;
    std::map<std::string, std::string> latest_;
};

}  // namespace fieldtest

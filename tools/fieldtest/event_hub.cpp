#include "tools/fieldtest/event_hub.h"

#include <algorithm>

namespace fieldtest {

std::optional<std::string> EventHub::Subscription::Next(std::chrono::milliseconds timeout) {
    std::unique_lock lock(hub_.mutex_);
    hub_.changed_.wait_for(lock, timeout, [&] { return hub_.closed_ || !queue_.empty(); });
    if (hub_.closed_ || queue_.empty()) return std::nullopt;
    std::string message = std::move(queue_.front());
    queue_.pop_front();
    return message;
}

bool EventHub::Subscription::closed() {
    std::lock_guard lock(hub_.mutex_);
    return hub_.closed_;
}

void EventHub::Publish(const std::string& key, const std::string& event, const std::string& data) {
    std::string message = "event: " + event + "\ndata: " + data + "\n\n";
    {
        std::lock_guard lock(mutex_);
        latest_[key] = message;
        for (auto& subscription : subscriptions_) {
            if (subscription->queue_.size() >= kQueueLimit) subscription->queue_.pop_front();
            subscription->queue_.push_back(message);
        }
    }
    changed_.notify_all();
}

std::shared_ptr<EventHub::Subscription> EventHub::Subscribe() {
    std::shared_ptr<Subscription> subscription(new Subscription(*this));
    std::lock_guard lock(mutex_);
    for (const auto& [key, message] : latest_) subscription->queue_.push_back(message);
    subscriptions_.push_back(subscription);
    return subscription;
}

void EventHub::Unsubscribe(const std::shared_ptr<Subscription>& subscription) {
    std::lock_guard lock(mutex_);
    std::erase(subscriptions_, subscription);
}

void EventHub::Close() {
    {
        std::lock_guard lock(mutex_);
        closed_ = true;
    }
    changed_.notify_all();
}

size_t EventHub::subscribers() {
    std::lock_guard lock(mutex_);
    return subscriptions_.size();
}

}  // namespace fieldtest

#include "service/client_turns.h"

bool ClientTurns::Push(uint64_t client, std::string request) {
    std::deque<std::string>& queue = waiting_[client];
    if (queue.size() >= kMaxPerClient) return false;
    if (queue.empty()) turns_.push_back(client);
    queue.push_back(std::move(request));
    return true;
}

std::optional<std::string> ClientTurns::Next() {
    if (turns_.empty()) return std::nullopt;
    uint64_t client = turns_.front();
    turns_.pop_front();
    auto found = waiting_.find(client);
    std::string request = std::move(found->second.front());
    found->second.pop_front();
    if (found->second.empty()) {
        waiting_.erase(found);
    } else {
        turns_.push_back(client);  // its next request after every other client's
    }
    return request;
}

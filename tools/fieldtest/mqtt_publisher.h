// fieldtest publish: one device's reports on an MQTT broker. Asks the local
// daemon for its reports the way the screens do, every interval, and
// publishes each as JSON (the web screen's layout of it, with the device's
// name) on radio_tavora/<device>/<report>, QoS 1 and retained, so a
// subscriber that comes later sees the latest at once. Samples are
// numbered ("seq" 1, 2, 3... across the reports) within this run ("run",
// its start time in ms), so that a subscriber can tell one it missed
// from a publisher that restarted. The device's status
// is "online" while it runs, "offline" when it stops, and the broker's
// last will says "offline" for it when it vanishes. diag/config is
// published on radio_tavora/<device>/config; settings sent on
// radio_tavora/<device>/set (NAME=VALUE lines) are applied only when
// accept_settings is given, after the same checks as fieldtest set.
#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tools/fieldtest/mqtt_link.h"

namespace fieldtest {

struct PublishOptions {
    MqttOptions mqtt;
    std::string device;
    double interval_s = 2;
    int timeout_ms = 5000;
    std::vector<std::string> reports;  // names from Reports()
    bool accept_settings = false;
};

class MqttPublisher {
  public:
    explicit MqttPublisher(PublishOptions options);
    ~MqttPublisher();

    // Starts the link to the broker; false with the reason when it cannot.
    bool Start(std::string* error);
    // Publishes rounds until Stop (from another thread).
    void Run();
    // Ends the rounds; Run then says "offline" and disconnects.
    void Stop();

  private:
    std::string Topic(const std::string& leaf) const;
    void OnConnect();
    void OnMessage(const std::string& topic, const std::string& payload);
    void PublishRound();
    void PublishConfig();
    void ApplySettings(const std::string& text);

    PublishOptions options_;
    std::unique_ptr<MqttLink> link_;
    int next_id_;
    const long long run_;
    long long seq_ = 0;  // the last sample's number
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::deque<std::string> settings_;  // set messages waiting for the round thread
};

}  // namespace fieldtest

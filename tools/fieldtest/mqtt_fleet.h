// The devices seen on an MQTT broker, for fieldtest serve --mqtt: every
// radio_tavora/<device>/... topic is heard, the reports' samples are
// checked and handed on with the device's name, and each device's status
// ("online", "offline") and last sample time are kept. Samples numbered
// by their publisher ("run", "seq") are followed per device: the numbers
// skipped are counted as missed (and said on stderr), copies of a sample
// already heard are dropped.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/fieldtest/mqtt_link.h"
#include "tools/fieldtest/sample_sequence.h"

namespace fieldtest {

class MqttFleet {
  public:
    // A report's sample from `device` (its "device" set to that name);
    // `retained`: kept by the broker from before this subscription.
    using OnSample = std::function<void(const std::string& device, nlohmann::ordered_json sample,
                                        bool retained)>;
    // A device's status or diag/config changed: {"device", "status", "config"}.
    using OnDevice = std::function<void(const nlohmann::ordered_json& device)>;

    MqttFleet(MqttOptions options, OnSample on_sample, OnDevice on_device);
    bool Start(std::string* error);
    void Stop();
    bool connected() const { return link_->connected(); }
    // Every device seen: [{"device", "status", "config", "last_sample",
    // "seq" (the last sample number heard), "missed"}], by name.
    nlohmann::ordered_json Devices();
    // Sends NAME=VALUE to a device's set topic; false when not connected.
    bool SendSetting(const std::string& device, const std::string& name, const std::string& value);

    // One message as heard from the broker (the link calls it; so does the
    // fuzz target, without a broker).
    void OnMessage(const std::string& topic, const std::string& payload, bool retained);

  private:
    struct Device {
        std::string status = "unknown";
        nlohmann::ordered_json config = nlohmann::ordered_json::object();
        long long last_sample = 0;
        SampleSequence sequence;
    };
    OnSample on_sample_;
    OnDevice on_device_;
    std::unique_ptr<MqttLink> link_;
    std::mutex mutex_;
    std::map<std::string, Device> devices_;
};

}  // namespace fieldtest

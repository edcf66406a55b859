#include "tools/fieldtest/mqtt_fleet.h"

#include <cstdio>

#include "tools/fieldtest/screen_client.h"

namespace fieldtest {

namespace {

using Json = nlohmann::ordered_json;

// A report's sample is a few kilobytes; a larger message is not one.
constexpr size_t kMaxSample = 256 * 1024;
// Devices kept: a fleet's screen, not an unbounded map fed by the broker.
constexpr size_t kMaxDevices = 1000;

}  // namespace

MqttFleet::MqttFleet(MqttOptions options, OnSample on_sample, OnDevice on_device)
    : on_sample_(std::move(on_sample)), on_device_(std::move(on_device)) {
    link_ = std::make_unique<MqttLink>(
        std::move(options), [this] { link_->Subscribe(std::string(kTopicRoot) + "/+/+"); },
        [this](const std::string& topic, const std::string& payload, bool retained) {
            OnMessage(topic, payload, retained);
        });
}

bool MqttFleet::Start(std::string* error) {
    return link_->Start(error);
}

void MqttFleet::Stop() {
    link_->Stop();
}

void MqttFleet::OnMessage(const std::string& topic, const std::string& payload, bool retained) {
    // radio_tavora/<device>/<leaf>, the subscription's own shape.
    size_t first = topic.find('/'), second = topic.find('/', first + 1);
    if (first == std::string::npos || second == std::string::npos) return;
    std::string device = topic.substr(first + 1, second - first - 1);
    std::string leaf = topic.substr(second + 1);
    if (leaf == "set" || payload.size() > kMaxSample) return;
    bool is_report = FindReport(leaf) != nullptr;
    if (leaf != "status" && leaf != "config" && !is_report) return;
    Json body;
    if (leaf != "status") {
        body = Json::parse(payload, nullptr, false);
        bool sample_shape = body.is_object() && body.contains("values") &&
                            body["values"].is_object() && body.contains("time") &&
                            body["time"].is_number_integer();
        if (!body.is_object() || (is_report && !sample_shape)) {
            std::fprintf(stderr, "fieldtest: serve: %s holds no %s; ignored\n", topic.c_str(),
                         is_report ? "sample" : "JSON object");
            return;
        }
    }
    Json changed;
    {
        std::lock_guard lock(mutex_);
        if (!devices_.count(device) && devices_.size() >= kMaxDevices) return;
        Device& known = devices_[device];
        if (leaf == "status") {
            known.status = payload == "online" ? "online" : "offline";
        } else if (leaf == "config") {
            known.config = body;
        } else {
            known.last_sample = body["time"].get<long long>();
            // A retained sample is a copy of one published earlier, not the
            // next in line; unnumbered ones come from older publishers.
            const Json& run = body.contains("run") ? body["run"] : Json();
            const Json& seq = body.contains("seq") ? body["seq"] : Json();
            if (!retained && run.is_number_integer() && seq.is_number_integer() &&
                seq.get<long long>() >= 1 && seq.get<long long>() <= SampleSequence::kMaxNumber) {
                auto verdict = known.sequence.Take(run.get<long long>(), seq.get<long long>());
                if (verdict == SampleSequence::Verdict::kCopy) return;
                if (verdict == SampleSequence::Verdict::kGap)
                    std::fprintf(stderr,
                                 "fieldtest: serve: %s: %lld samples missed (seq %lld came "
                                 "next)\n",
                                 device.c_str(), known.sequence.gap(), seq.get<long long>());
            }
        }
        changed = {{"device", device}, {"status", known.status}, {"config", known.config}};
    }
    if (!is_report) {
        on_device_(changed);
        return;
    }
    // The topic names the device and the report, whatever the body says.
    body["device"] = device;
    body["report"] = leaf;
    body["object"] = FindReport(leaf)->status_object;
    if (!body.contains("error") || !body["error"].is_string()) body["error"] = "";
    if (!body.contains("items") || !body["items"].is_array()) body["items"] = Json::array();
    on_sample_(device, std::move(body), retained);
}

Json MqttFleet::Devices() {
    std::lock_guard lock(mutex_);
    Json list = Json::array();
    for (const auto& [name, device] : devices_)
        list.push_back({{"device", name},
                        {"status", device.status},
                        {"config", device.config},
                        {"last_sample", device.last_sample},
                        {"seq", device.sequence.last()},
                        {"missed", device.sequence.missed()}});
    return list;
}

bool MqttFleet::SendSetting(const std::string& device, const std::string& name,
                            const std::string& value) {
    if (!link_->connected() || !IsTopicLevel(device)) return false;
    return link_->Publish(std::string(kTopicRoot) + "/" + device + "/set", name + "=" + value,
                          false);
}

}  // namespace fieldtest

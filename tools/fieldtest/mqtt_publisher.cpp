#include "tools/fieldtest/mqtt_publisher.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <sstream>

#include "tools/fieldtest/report_layout.h"
#include "tools/fieldtest/screen_client.h"
#include "tools/fieldtest/setting_rules.h"

namespace fieldtest {

namespace {

using Json = nlohmann::ordered_json;

// A set message is a few lines; anything longer is refused unread.
constexpr size_t kMaxSetMessage = 4096;

long long UnixMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

MqttPublisher::MqttPublisher(PublishOptions options)
    : options_(std::move(options)),
      next_id_(static_cast<int>(::getpid() % 10000) * 1000 + 700),
      run_(UnixMs()) {
    options_.mqtt.will_topic = Topic("status");
    options_.mqtt.will_payload = "offline";
    link_ = std::make_unique<MqttLink>(
        options_.mqtt, [this] { OnConnect(); },
        [this](const std::string& topic, const std::string& payload, bool retained) {
            // A retained setting would be applied again at every connection.
            if (!retained) OnMessage(topic, payload);
        });
}

MqttPublisher::~MqttPublisher() {
    Stop();
}

std::string MqttPublisher::Topic(const std::string& leaf) const {
    return std::string(kTopicRoot) + "/" + options_.device + "/" + leaf;
}

bool MqttPublisher::Start(std::string* error) {
    return link_->Start(error);
}

void MqttPublisher::OnConnect() {
    link_->Publish(Topic("status"), "online", true);
    // Heard even without --accept-settings, so that a refused setting is
    // said to be refused rather than lost without a word.
    link_->Subscribe(Topic("set"));
}

void MqttPublisher::OnMessage(const std::string& topic, const std::string& payload) {
    if (topic != Topic("set")) return;
    if (!options_.accept_settings) {
        std::fprintf(stderr,
                     "fieldtest: publish: ignored settings sent to %s (no --accept-settings)\n",
                     options_.device.c_str());
        return;
    }
    // Applied by the round thread: a settings write waits for the PPS
    // broker, and the network thread must keep the link alive meanwhile.
    {
        std::lock_guard lock(mutex_);
        settings_.push_back(payload);
    }
    wake_.notify_all();
}

void MqttPublisher::ApplySettings(const std::string& text) {
    if (text.size() > kMaxSetMessage) {
        std::fprintf(stderr, "fieldtest: publish: refused settings: more than %zu bytes\n",
                     kMaxSetMessage);
        return;
    }
    std::string message, applied;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty()) continue;
        size_t eq = line.find('=');
        std::string reason = eq == std::string::npos || eq == 0
                                 ? "expected NAME=VALUE lines"
                                 : CheckSetting(line.substr(0, eq), line.substr(eq + 1));
        if (!reason.empty()) {
            // One bad line refuses the message: settings go together or not at all.
            std::fprintf(stderr, "fieldtest: publish: refused settings: %s\n", reason.c_str());
            return;
        }
        message += line.substr(0, eq) + "::" + line.substr(eq + 1) + "\n";
        applied += (applied.empty() ? "" : " ") + line;
    }
    if (message.empty()) return;
    std::string error = WriteConfigText(message);
    if (!error.empty()) {
        std::fprintf(stderr, "fieldtest: publish: settings not written: %s\n", error.c_str());
        return;
    }
    std::fprintf(stderr, "fieldtest: publish: applied %s\n", applied.c_str());
    PublishConfig();
}

void MqttPublisher::PublishConfig() {
    std::string config = ReadObject(kConfigPath);
    if (!config.empty())
        link_->Publish(Topic("config"), JsonText(ToJson(ParseAttributes(config))), true);
}

void MqttPublisher::PublishRound() {
    for (const std::string& name : options_.reports) {
        const ReportInfo* report = FindReport(name);
        std::vector<Attribute> attributes;
        std::string error = FetchReport(*report, next_id_++, options_.timeout_ms, &attributes);
        Json sample = {{"device", options_.device},
                       {"report", report->name},
                       {"object", report->status_object},
                       {"time", UnixMs()},
                       {"run", run_},
                       {"seq", ++seq_},
                       {"error", error}};
        Json layout = ReportLayout(attributes);
        sample["values"] = std::move(layout["values"]);
        sample["items"] = std::move(layout["items"]);
        // One refused (too many wait for the broker) leaves a gap in the
        // numbers: the subscriber counts it as missed.
        link_->Publish(Topic(report->name), JsonText(sample), true);
    }
}

void MqttPublisher::Run() {
    PublishConfig();
    std::unique_lock lock(mutex_);
    auto next_round = std::chrono::steady_clock::now();
    while (!stopping_) {
        if (!settings_.empty()) {
            std::string text = std::move(settings_.front());
            settings_.pop_front();
            lock.unlock();
            ApplySettings(text);
            lock.lock();
            continue;
        }
        if (std::chrono::steady_clock::now() >= next_round) {
            lock.unlock();
            PublishRound();
            lock.lock();
            next_round = std::chrono::steady_clock::now() +
                         std::chrono::milliseconds(static_cast<int>(options_.interval_s * 1000));
            continue;
        }
        wake_.wait_until(lock, next_round, [&] { return stopping_ || !settings_.empty(); });
    }
    lock.unlock();
    // A clean stop: the device says it is gone (the will is for a vanishing).
    link_->Stop(Topic("status"), "offline");
}

void MqttPublisher::Stop() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
}

}  // namespace fieldtest

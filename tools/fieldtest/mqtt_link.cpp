#include "tools/fieldtest/mqtt_link.h"

#include <mosquitto.h>

#include <cstdio>
#include <fstream>
#include <mutex>

namespace fieldtest {

namespace {

// The library's global state, set up once for the program.
void InitLibrary() {
    static std::once_flag once;
    std::call_once(once, [] { mosquitto_lib_init(); });
}

}  // namespace

bool ParseMqttAddress(const std::string& text, std::string* host, int* port) {
    if (text.empty()) return false;
    size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        *host = text;
        *port = kMqttPort;
        return true;
    }
    std::string port_text = text.substr(colon + 1);
    if (colon == 0 || port_text.empty() || port_text.size() > 5 ||
        port_text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    int value = std::stoi(port_text);
    if (value < 1 || value > 65535) return false;
    *host = text.substr(0, colon);
    *port = value;
    return true;
}

bool ReadSecretFile(const std::string& path, std::string* secret) {
    std::ifstream in(path);
    if (!in) return false;
    std::getline(in, *secret);
    if (!secret->empty() && secret->back() == '\r') secret->pop_back();
    return true;
}

bool IsTopicLevel(const std::string& name) {
    return !name.empty() && name.find_first_of("/+#") == std::string::npos;
}

MqttLink::MqttLink(MqttOptions options, OnConnect on_connect, OnMessage on_message)
    : options_(std::move(options)),
      on_connect_(std::move(on_connect)),
      on_message_(std::move(on_message)) {}

MqttLink::~MqttLink() {
    Stop();
}

bool MqttLink::Start(std::string* error) {
    InitLibrary();
    if (!options_.clean_session && options_.client_id.empty()) {
        *error = "MQTT: a persistent session needs a client id";
        return false;
    }
    client_ = mosquitto_new(options_.client_id.empty() ? nullptr : options_.client_id.c_str(),
                            options_.clean_session, this);
    if (client_ == nullptr) {
        *error = "cannot create an MQTT client";
        return false;
    }
    mosquitto_connect_with_flags_callback_set(client_, ConnectCallback);
    mosquitto_publish_callback_set(client_, PublishCallback);
    mosquitto_disconnect_callback_set(client_, DisconnectCallback);
    mosquitto_message_callback_set(client_, MessageCallback);
    // Reconnects wait 1 s, then twice as long each time, up to 30 s.
    mosquitto_reconnect_delay_set(client_, 1, 30, true);
    int rc = MOSQ_ERR_SUCCESS;
    if (!options_.will_topic.empty())
        rc = mosquitto_will_set(client_, options_.will_topic.c_str(),
                                static_cast<int>(options_.will_payload.size()),
                                options_.will_payload.data(), 1, true);
    if (rc == MOSQ_ERR_SUCCESS && !options_.username.empty())
        rc = mosquitto_username_pw_set(
            client_, options_.username.c_str(),
            options_.password.empty() ? nullptr : options_.password.c_str());
    if (rc == MOSQ_ERR_SUCCESS && !options_.tls_ca.empty())
        rc =
            mosquitto_tls_set(client_, options_.tls_ca.c_str(), nullptr, nullptr, nullptr, nullptr);
    if (rc != MOSQ_ERR_SUCCESS) {
        *error = std::string("MQTT: ") + mosquitto_strerror(rc);
        return false;
    }
    // The network thread first: a broker away now is reached by its
    // reconnects. (libmosquitto 2.0 never retries a first attempt that
    // failed before its thread ran.)
    rc = mosquitto_loop_start(client_);
    if (rc != MOSQ_ERR_SUCCESS) {
        *error = std::string("MQTT: ") + mosquitto_strerror(rc);
        return false;
    }
    started_ = true;
    rc = mosquitto_connect_async(client_, options_.host.c_str(), options_.port,
                                 options_.keepalive_s);
    if (rc != MOSQ_ERR_SUCCESS && rc != MOSQ_ERR_ERRNO) {
        *error = "MQTT: cannot connect to " + options_.host + ": " + mosquitto_strerror(rc);
        return false;
    }
    return true;
}

bool MqttLink::Publish(const std::string& topic, const std::string& payload, bool retain) {
    if (client_ == nullptr) return false;
    // Counted before the call: the acknowledgement may come before it returns.
    if (waiting_.fetch_add(1) >= options_.max_waiting) {
        waiting_.fetch_sub(1);
        if (refused_.fetch_add(1) == 0)
            std::fprintf(stderr,
                         "fieldtest: %zu messages wait for MQTT broker %s:%d; newer ones are "
                         "dropped until it takes them\n",
                         options_.max_waiting, options_.host.c_str(), options_.port);
        return false;
    }
    if (size_t refused = refused_.exchange(0); refused > 0)
        std::fprintf(stderr, "fieldtest: MQTT broker %s:%d takes messages again; %zu dropped\n",
                     options_.host.c_str(), options_.port, refused);
    int rc = mosquitto_publish(client_, nullptr, topic.c_str(), static_cast<int>(payload.size()),
                               payload.data(), 1, retain);
    // Not connected: the library still keeps the message and sends it once
    // connected again (seen with libmosquitto 2.0).
    if (rc == MOSQ_ERR_SUCCESS || rc == MOSQ_ERR_NO_CONN) return true;
    waiting_.fetch_sub(1);
    return false;
}

bool MqttLink::Subscribe(const std::string& pattern) {
    return client_ != nullptr &&
           mosquitto_subscribe(client_, nullptr, pattern.c_str(), 1) == MOSQ_ERR_SUCCESS;
}

void MqttLink::Stop(const std::string& last_topic, const std::string& last_payload) {
    if (client_ == nullptr) return;
    if (started_) {
        if (!last_topic.empty() && connected_) Publish(last_topic, last_payload, true);
        mosquitto_disconnect(client_);
        mosquitto_loop_stop(client_, false);
    }
    mosquitto_destroy(client_);
    client_ = nullptr;
    started_ = false;
    connected_ = false;
}

void MqttLink::ConnectCallback(mosquitto*, void* self, int rc, int flags) {
    auto* link = static_cast<MqttLink*>(self);
    if (rc != 0) {
        std::fprintf(stderr, "fieldtest: MQTT broker %s:%d refused the connection: %s\n",
                     link->options_.host.c_str(), link->options_.port,
                     mosquitto_connack_string(rc));
        return;
    }
    link->connected_ = true;
    // The CONNACK's first flag: the broker still had this client's session.
    bool resumed = !link->options_.clean_session && (flags & 1) != 0;
    size_t waiting = link->waiting_.load();
    std::string kept =
        waiting > 0 ? "; " + std::to_string(waiting) + " messages kept meanwhile are sent now" : "";
    std::fprintf(stderr, "fieldtest: connected to MQTT broker %s:%d%s%s\n",
                 link->options_.host.c_str(), link->options_.port,
                 resumed ? " (session resumed)" : "", kept.c_str());
    // Subscriptions and the status are made again on every connection: a
    // clean session keeps nothing across one, and a broker may have lost
    // a persistent one.
    if (link->on_connect_) link->on_connect_();
}

void MqttLink::PublishCallback(mosquitto*, void* self, int) {
    static_cast<MqttLink*>(self)->waiting_.fetch_sub(1);
}

void MqttLink::DisconnectCallback(mosquitto*, void* self, int rc) {
    auto* link = static_cast<MqttLink*>(self);
    bool was = link->connected_.exchange(false);
    if (was && rc != 0)
        std::fprintf(stderr, "fieldtest: lost MQTT broker %s:%d; reconnecting\n",
                     link->options_.host.c_str(), link->options_.port);
}

void MqttLink::MessageCallback(mosquitto*, void* self, const mosquitto_message* message) {
    auto* link = static_cast<MqttLink*>(self);
    if (!link->on_message_ || message->topic == nullptr) return;
    std::string payload;
    if (message->payload != nullptr && message->payloadlen > 0)
        payload.assign(static_cast<const char*>(message->payload),
                       static_cast<size_t>(message->payloadlen));
    link->on_message_(message->topic, payload, message->retain);
}

}  // namespace fieldtest

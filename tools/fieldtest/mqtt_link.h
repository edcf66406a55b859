// One connection to an MQTT broker through libmosquitto (Debian's
// libmosquitto-dev): its own network thread, reconnects with an
// exponential back-off of 1 to 30 s, TLS against a CA file and
// username/password when given, and a last will. What fieldtest publish
// and serve --mqtt share; they know topics, this knows the broker.
//
// QoS 1 messages published while the broker is away are kept by the
// library (it says "no connection" yet queues them) and sent once it is
// back, until acknowledged; at most max_waiting are kept, newer ones are
// refused beyond that with a line on stderr. A client with a persistent
// session (clean_session false, a fixed client id) has the broker keep
// its subscriptions and queue QoS 1 messages for it while it is away.
//
//   radio_tavora/<device>/<report>   a report's latest sample (JSON), QoS 1, retained
//   radio_tavora/<device>/status     "online", or the will "offline", retained
//   radio_tavora/<device>/config     diag/config's attributes (JSON), retained
//   radio_tavora/<device>/set        NAME=VALUE lines for the device's diag/config
#pragma once

#include <atomic>
#include <functional>
#include <string>

struct mosquitto;
struct mosquitto_message;

namespace fieldtest {

inline constexpr const char* kTopicRoot = "radio_tavora";
inline constexpr int kMqttPort = 1883;
inline constexpr int kMinKeepalive = 5, kMaxKeepalive = 65535;

struct MqttOptions {
    std::string host = "127.0.0.1";
    int port = kMqttPort;
    std::string client_id;  // "" lets the library choose one
    std::string tls_ca;     // a CA file: TLS, the broker's certificate checked against it
    std::string username;
    std::string password;
    int keepalive_s = 10;  // libmosquitto takes 5 to 65535
    bool clean_session = true;
    // QoS 1 messages not yet acknowledged by the broker that are kept at
    // most: a publisher out of coverage for hours holds a bounded memory.
    size_t max_waiting = 5000;
    // A retained last will, sent by the broker when the link dies unannounced.
    std::string will_topic, will_payload;
};

// "HOST:PORT" or "HOST" (port 1883); false when it is not one.
bool ParseMqttAddress(const std::string& text, std::string* host, int* port);
// The first line of a file (a password kept off the command line), false
// when it cannot be read.
bool ReadSecretFile(const std::string& path, std::string* secret);
// A device name fit for one topic level: no '/', '+', '#', not empty.
bool IsTopicLevel(const std::string& name);

class MqttLink {
  public:
    using OnConnect = std::function<void()>;
    // `retained`: a message the broker kept from before this subscription.
    using OnMessage =
        std::function<void(const std::string& topic, const std::string& payload, bool retained)>;

    MqttLink(MqttOptions options, OnConnect on_connect, OnMessage on_message);
    ~MqttLink();
    MqttLink(const MqttLink&) = delete;
    MqttLink& operator=(const MqttLink&) = delete;

    // Starts the network thread and the first connection attempt; false
    // with the reason for what cannot work (a bad option or TLS file). A
    // broker that is not there yet is retried, not an error.
    bool Start(std::string* error);
    // Publishes `payload` at QoS 1; kept and sent once connected again when
    // the link is down. False when the library refuses it or max_waiting
    // messages already wait for the broker.
    bool Publish(const std::string& topic, const std::string& payload, bool retain);
    bool Subscribe(const std::string& pattern);
    // Publishes `last` (e.g. status "offline") when given, disconnects
    // cleanly (no will) and stops the thread.
    void Stop(const std::string& last_topic = "", const std::string& last_payload = "");
    bool connected() const { return connected_; }

  private:
    static void ConnectCallback(mosquitto*, void* self, int rc, int flags);
    static void PublishCallback(mosquitto*, void* self, int mid);
    static void DisconnectCallback(mosquitto*, void* self, int rc);
    static void MessageCallback(mosquitto*, void* self, const mosquitto_message* message);

    MqttOptions options_;
    OnConnect on_connect_;
    OnMessage on_message_;
    mosquitto* client_ = nullptr;
    std::atomic<bool> connected_{false};
    std::atomic<size_t> waiting_{0};  // published, not yet acknowledged
    std::atomic<size_t> refused_{0};  // refused since the last one taken
    bool started_ = false;
};

}  // namespace fieldtest

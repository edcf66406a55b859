// A real MQTT broker for a test: Debian's mosquitto on a free port of the
// loopback, with a configuration of its own (anonymous clients, its
// database in a folder of its own, so that a restart keeps the retained
// messages, the persistent sessions and what is queued for them), logging
// to its standard error.
//
//   rt::test::MosquittoProcess broker;
//   if (!rt::test::MosquittoProcess::Installed()) GTEST_SKIP() << ...;
//   ASSERT_TRUE(broker.ready()) << broker.process().Stderr();
//   argv.push_back(broker.address());          // "127.0.0.1:PORT"
#pragma once

#include <memory>
#include <string>

#include "testsupport/child_process.h"

namespace rt::test {

// A TCP socket bound to a free port of the loopback, which `*port` names.
int BoundLoopbackSocket(int* port);
// A TCP port of the loopback free now.
int FreeLoopbackPort();

class MosquittoProcess {
  public:
    static constexpr const char* kBroker = "/usr/sbin/mosquitto";
    static bool Installed();

    // Started now, or with `start` false only once Start is called (for
    // clients that come before their broker).
    explicit MosquittoProcess(bool start = true);
    bool ready() const { return ready_; }
    int port() const { return port_; }
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    ChildProcess& process() { return *process_; }
    // Subscribes with mosquitto_sub (mosquitto-clients) and returns the
    // first message on `topic` (retained ones included), "" when none
    // comes in `timeout_s`.
    std::string FirstMessage(const std::string& topic, int timeout_s = 5);
    // Stops the broker (SIGTERM: it saves its database) and starts it
    // again on the same port, as a broker that restarts; true once it runs
    // again.
    bool Restart();
    // Publishes `payload` on `topic` with mosquitto_pub; true once sent.
    bool Send(const std::string& topic, const std::string& payload);
    // Starts the broker; true once it runs.
    bool Start();

  private:
    TempDir dir_;
    int port_;
    std::unique_ptr<ChildProcess> process_;
    bool ready_ = false;
};

}  // namespace rt::test

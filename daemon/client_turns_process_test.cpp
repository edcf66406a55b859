// radio_tavora serving clients in turns, as real processes: four clients
// keep lteopinfo requests flooding in while a fifth asks for radiostats once.
// Its answer must come after at most a turn or so of the flood's answers,
// not after every flood request queued before it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/pps/pps_client.h"
#include "testsupport/daemon_fixture.h"
#include "testsupport/eventually.h"
#include "testsupport/modemsim_process.h"

namespace {

using rt::test::DaemonFixture;
using rt::test::DaemonOptions;
using rt::test::PpsClientConnection;

constexpr int kFlooders = 4;
// Requests each flooder keeps waiting for their answers: far more than one
// turn, below the daemon's own bound per client.
constexpr int kWindow = 32;

// Keeps kWindow lteopinfo requests of each flooder outstanding, sending one
// more for each answer, and counts the answers, until stopped.
class Flood {
  public:
    Flood() {
        for (int i = 0; i < kFlooders; ++i)
            clients_.push_back(
                std::make_unique<PpsClientConnection>(rt::test::kControlObject, O_RDWR));
        thread_ = std::thread([this] { Run(); });
    }
    ~Flood() {
        stop_ = true;
        thread_.join();
    }
    bool ok() const {
        for (const auto& client : clients_)
            if (!client->ok()) return false;
        return true;
    }
    int answers() const { return answers_.load(); }
    bool WaitForAnswers(int count) const {
        return rt::test::Eventually([&] { return answers_.load() >= count; });
    }

  private:
    void Run() {
        int next_id = 1000;
        auto send = [&](PpsClientConnection& client) {
            client.Write("msg::lteopinfo\nid::" + std::to_string(next_id++) + "\n");
        };
        for (auto& client : clients_)
            for (int i = 0; i < kWindow; ++i) send(*client);
        std::vector<pollfd> table;
        for (const auto& client : clients_) table.push_back({client->fd(), POLLIN, 0});
        char buffer[8192];
        while (!stop_) {
            if (::poll(table.data(), table.size(), 50) <= 0) continue;
            for (size_t i = 0; i < table.size(); ++i) {
                if ((table[i].revents & POLLIN) == 0) continue;
                ssize_t n = pps_read(table[i].fd, buffer, sizeof buffer);
                if (n <= 0) continue;
                if (std::string(buffer, static_cast<size_t>(n)).find("res::lteopinfo") ==
                    std::string::npos)
                    continue;
                ++answers_;
                send(*clients_[i]);
            }
        }
    }

    std::vector<std::unique_ptr<PpsClientConnection>> clients_;
    std::atomic<int> answers_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

TEST(ClientTurnsProcess, AFloodingClientDoesNotKeepAnotherWaiting) {
    rt::test::ModemsimProcess modem(R"({"lte": {"period_ms": 100}})");
    ASSERT_TRUE(modem.ready()) << modem.process().Stderr();
    DaemonOptions options;
    options.env = modem.DaemonEnv();
    DaemonFixture daemon(options);
    ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();

    Flood flood;
    ASSERT_TRUE(flood.ok());
    // The flood is under way: every flooder's window is queued at the daemon.
    ASSERT_TRUE(flood.WaitForAnswers(2 * kFlooders * kWindow));
    PpsClientConnection normal(rt::test::kControlObject, O_RDWR);
    ASSERT_TRUE(normal.ok());
    int before = flood.answers();
    ASSERT_TRUE(normal.Write("msg::radiostats\nid::7\n"));
    std::string reply;
    while (reply.find("res:") == std::string::npos) {
        reply = normal.Read(30000);
        if (reply.empty()) break;
    }
    int during = flood.answers() - before;
    EXPECT_NE(reply.find("res::radiostats\n"), std::string::npos) << reply;
    // One turn is one answer per flooder; a few turns of slack for the
    // answers counted while the request was on its way. In arrival order it
    // would have waited for every request of the flooders' windows.
    EXPECT_LE(during, 3 * (kFlooders + 1)) << "flood answers before radiostats's";
    // And the flood went on meanwhile: it was answered, not stalled.
    EXPECT_TRUE(flood.WaitForAnswers(flood.answers() + kFlooders));
}

}  // namespace

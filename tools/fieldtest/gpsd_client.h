// The phone's position from gpsd, through its JSON socket protocol: the
// client sends ?WATCH={"enable":true,"json":true} and reads one JSON object
// a line; a TPV object of mode 2 or 3 is a fix (lat, lon in decimal
// degrees, and time when the receiver gave one). A thread of its own keeps
// the connection, opening it again every few seconds while gpsd is away.
#pragma once

#include <condition_variable>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

#include "tools/fieldtest/position.h"

namespace fieldtest {

inline constexpr int kGpsdPort = 2947;

// "HOST[:PORT]" (the port defaults to gpsd's 2947); false when it is not one.
bool ParseGpsdAddress(const std::string& text, std::string* host, int* port);

// What one line from gpsd says of the position: a fix, no fix (a TPV
// without one), or nothing (another class, or not JSON) as std::nullopt.
std::optional<Position> PositionFromGpsdLine(const std::string& line);

class GpsdClient {
  public:
    GpsdClient(std::string host, int port);
    ~GpsdClient();
    GpsdClient(const GpsdClient&) = delete;
    GpsdClient& operator=(const GpsdClient&) = delete;

    // The position now: known only while gpsd is connected and has a fix.
    Position Latest();
    // For the page's header: the fix, or why there is none.
    nlohmann::ordered_json Json();

  private:
    void Run();
    bool ReadFrom(int fd);  // until the connection ends or the client stops

    std::string host_;
    int port_;
    std::mutex mutex_;
    std::condition_variable stop_;
    bool stopping_ = false, connected_ = false;
    Position latest_;
    std::thread thread_;
};

}  // namespace fieldtest

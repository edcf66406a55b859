// fieldtest serve: the field-test screen as a web page. A small HTTP server,
// a client of the PPS broker like the rest of fieldtest, that asks for every
// report on an interval and pushes each one to the open pages as a
// Server-Sent Event, watches diag/config and pushes its changes, records the
// values it took, and changes settings for the page.
//
//   GET  /                    the page (and /screen.js, /screen.css, /chart.js, /leaflet.js,
//                             /leaflet.css)
//   GET  /api/events          the event stream: report, config, health
//   GET  /api/reports         the reports, in order, with their status objects
//   GET  /api/report/NAME     one report asked for now, laid out as the page shows it
//   GET  /api/config          diag/config's attributes
//   POST /api/config          {"name": ..., "value": ...}: checked, then written
//   POST /api/interval        {"seconds": S}: how often the reports are asked for
//   GET  /api/recording.csv   the values kept in memory (time, report, attribute, value)
//   GET  /api/recordings      the recordings on disk (--record DIR) and the samples acknowledged
//   GET  /api/recordings/NAME one of them, read from disk as it is sent
//   GET  /api/devices         with --mqtt: every device seen on the broker, its status,
//                             its last sample number ("seq") and the samples missed
//
// With an MQTT broker (fieldtest serve --mqtt), the reports are not asked
// for here: every device's samples come from the broker (fieldtest publish
// on each device), are pushed to the page with the device's name and
// recorded with it; POST /api/config then takes a "device" and sends the
// setting to that device's set topic.
//
// Without a page (fieldtest record), the same rounds are taken and recorded
// and nothing is served.
#pragma once

#include <memory>
#include <string>

#include "tools/fieldtest/mqtt_link.h"

namespace fieldtest {

struct WebScreenOptions {
    std::string host = "127.0.0.1";
    int port = 8080;
    double interval_s = 2;
    int timeout_ms = 5000;
    // Chart.js as the system installed it; the page draws no plots without it.
    std::string chart_js_path;
    // Leaflet's folder as the system installed it; the page draws no track without it.
    std::string leaflet_dir;
    // gpsd's address; no port: no position.
    std::string gpsd_host;
    int gpsd_port = 0;
    // Where every sample is recorded as CSV; "" records in memory only.
    std::string record_dir;
    // false: no HTTP server, only the rounds (and their recording).
    bool page = true;
    // Samples from the devices on this MQTT broker instead of the local daemon.
    bool fleet = false;
    MqttOptions mqtt;
};

class WebScreen {
  public:
    explicit WebScreen(WebScreenOptions options);
    ~WebScreen();

    // Takes the address (with a page) and starts the recording (with a
    // folder); false with the reason when it cannot.
    bool Listen(std::string* error);
    // Serves until Stop (from another thread or a signal handler's thread).
    void Run();
    // Stops the rounds and the server, and closes the recording: every
    // sample taken until then is in its file.
    void Stop();
    // What is recorded on disk: "N samples in DIR (FILE...)", "" without a folder.
    std::string RecordingSummary();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// "ADDR:PORT" (or ":PORT", or "PORT") into host and port; false when it is
// not one.
bool ParseListenAddress(const std::string& text, std::string* host, int* port);

}  // namespace fieldtest

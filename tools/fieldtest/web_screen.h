// fieldtest serve: the field-test screen as a web page. A small HTTP server,
// a client of the PPS broker like the rest of fieldtest, that asks for every
// report on an interval and pushes each one to the open pages as a
// Server-Sent Event, watches diag/config and pushes its changes, records the
// values it took, and changes settings for the page.
//
//   GET  /                    the page (and /screen.js, /screen.css, /chart.js)
//   GET  /api/events          the event stream: report, config, health
//   GET  /api/reports         the reports, in order, with their status objects
//   GET  /api/report/NAME     one report asked for now, laid out as the page shows it
//   GET  /api/config          diag/config's attributes
//   POST /api/config          {"name": ..., "value": ...}: checked, then written
//   POST /api/interval        {"seconds": S}: how often the reports are asked for
//   GET  /api/recording.csv   every value taken so far (time, report, attribute, value)
#pragma once

#include <memory>
#include <string>

namespace fieldtest {

struct WebScreenOptions {
    std::string host = "127.0.0.1";
    int port = 8080;
    double interval_s = 2;
    int timeout_ms = 5000;
    // Chart.js as the system installed it; the page draws no plots without it.
    std::string chart_js_path;
};

class WebScreen {
  public:
    explicit WebScreen(WebScreenOptions options);
    ~WebScreen();

    // Takes the address; false with the reason when it cannot.
    bool Listen(std::string* error);
    // Serves until Stop (from another thread or a signal handler's thread).
    void Run();
    void Stop();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// "ADDR:PORT" (or ":PORT", or "PORT") into host and port; false when it is
// not one.
bool ParseListenAddress(const std::string& text, std::string* host, int* port);

}  // namespace fieldtest

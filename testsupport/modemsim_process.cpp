#include "testsupport/modemsim_process.h"

#include <fstream>

namespace rt::test {

ModemsimProcess::ModemsimProcess(const std::string& scenario, std::vector<std::string> args,
                                 ModemLink link)
    : ptys_(link == ModemLink::kPtys) {
    std::string scenario_file = dir_.file("scenario.json");
    std::ofstream(scenario_file) << scenario;
    std::vector<std::string> argv{BinPath("modemsim"), "--qmi",      qmi_endpoint(), "--diag",
                                  diag_endpoint(),     "--scenario", scenario_file};
    argv.insert(argv.end(), args.begin(), args.end());
    process_ = std::make_unique<ChildProcess>(argv);
    ready_ = process_->WaitForStderr("modemsim: ready");
}

ModemAndDaemon::ModemAndDaemon(const std::string& scenario, DaemonOptions options)
    : modem_(scenario) {
    if (!modem_.ready()) return;
    std::vector<std::string> env = modem_.DaemonEnv();
    options.env.insert(options.env.begin(), env.begin(), env.end());
    daemon_ = std::make_unique<DaemonFixture>(std::move(options));
}

std::string ModemAndDaemon::Errors() {
    std::string text = "modemsim:\n" + modem_.process().Stderr();
    if (daemon_ && daemon_->has_daemon()) text += "\nradio_tavora:\n" + daemon_->daemon().Stderr();
    return text;
}

}  // namespace rt::test

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

}  // namespace rt::test

#include "testsupport/devsim_process.h"

#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <vector>

namespace rt::test {

DevsimProcess::DevsimProcess(const std::string& patch) : scenario_(dir_.file("scenario.json")) {
    std::ofstream(scenario_) << patch;
    process_ = std::make_unique<ChildProcess>(
        std::vector<std::string>{BinPath("devsim"), "--scenario", scenario_});
    ready_ = process_->WaitForStderr("devsim: ready");
}

bool DevsimProcess::Reload(const std::string& patch) {
    std::ofstream(scenario_) << patch;
    int reloads = process_->CountInStderr("devsim: reloading the scenario");
    if (!process_->Signal(SIGHUP)) return false;
    for (int waited = 0; waited < 5000; waited += 10) {
        if (process_->CountInStderr("devsim: reloading the scenario") > reloads) return true;
        ::usleep(10000);
    }
    return false;
}

}  // namespace rt::test

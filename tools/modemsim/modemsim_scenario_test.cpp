// modemsim as a process on scenario files it cannot serve: each is a clear
// error naming what is wrong and exit status 1, never an abort or a crash.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "testsupport/modemsim_process.h"

namespace {

using ::testing::HasSubstr;

TEST(ModemsimScenario, BadFilesAreClearErrors) {
    const std::pair<std::string, std::string> bad_files[] = {
        {R"({"qmi": "x"})", "qmi must be an object"},
        {R"({"qmi": {"reset_down_ms": "a"}})", "qmi.reset_down_ms must be a number"},
        {R"({"qmi": {"services": [{"service": "dms"}]}})",
         "qmi.services[0].service must be a number"},
        {R"({"qmi": {"misc_info": 3}})", "qmi.misc_info must be an object"},
        {R"({"diag": {"records": [{"payload": 7}]}})", "diag.records[0].payload must be a text"},
        {R"({"diag": {"capture_loop": "yes"}})", "diag.capture_loop must be true or false"},
        {R"({"lte": null})", "lte must be an object"},
        {"[]", "is not a JSON object"},
        {R"({"diag": )" + std::string(50000, '[') + std::string(50000, ']') + "}",
         "is nested deeper than 64 levels"},
    };
    for (const auto& [text, error] : bad_files) {
        rt::test::ModemsimProcess modem(text);
        EXPECT_FALSE(modem.ready()) << text.substr(0, 40);
        EXPECT_EQ(modem.process().Wait(5000), 1) << text.substr(0, 40);
        EXPECT_THAT(modem.process().Stderr(), HasSubstr(error));
    }
}

}  // namespace

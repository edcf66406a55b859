// fieldtest set against a running daemon: what it refuses before writing,
// and diag/config shown once the daemon has applied the change.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"

namespace {

using rt::test::BinPath;
using rt::test::ChildProcess;
using rt::test::DaemonFixture;
using ::testing::HasSubstr;

struct FieldtestRun {
    int status;
    std::string out;
    std::string err;
};

FieldtestRun Fieldtest(DaemonFixture& fixture, std::vector<std::string> args) {
    args.insert(args.begin(), {BinPath("fieldtest"), "set"});
    ChildProcess process(args, {fixture.broker().env()});
    int status = process.Wait(30000);
    return {status, process.Stdout(), process.Stderr()};
}

TEST(FieldtestSetTest, RefusesWhatTheDaemonWouldNotApplyAndWritesNothing) {
    DaemonFixture fixture;
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    struct Refusal {
        std::vector<std::string> args;
        const char* message;
    };
    const Refusal refusals[] = {
        {{"tethering=1"}, "fieldtest: set: unknown setting 'tethering'"},
        {{"ims_enable=true"}, "fieldtest: set: ims_enable is 0 or 1, not 'true'"},
        {{"diaglogmask=1", "enabled_rats=lte_only"}, "enabled_rats is one of NONE"},
        {{"apn_name="}, "fieldtest: set: apn_name needs a name"},
        {{"ens_value"}, "expected NAME=VALUE"},
    };
    for (const Refusal& r : refusals) {
        FieldtestRun run = Fieldtest(fixture, r.args);
        EXPECT_EQ(run.status, 2) << r.message;
        EXPECT_THAT(run.err, HasSubstr(r.message));
    }
    // Not even the valid diaglogmask of a refused set was written. (The
    // daemon may still be writing its own start-up lines, so the check is
    // of what the refused sets would have written, not the whole text.)
    const std::string after = fixture.ReadObject(rt::test::kConfigObject);
    for (const char* written :
         {"tethering", "ims_enable::true", "diaglogmask::1", "lte_only", "apn_name::", "ens_value"})
        EXPECT_EQ(after.find(written), std::string::npos) << written << " in\n" << after;
}

TEST(FieldtestSetTest, ShowsDiagConfigWithTheDaemonsWriteBack) {
    DaemonFixture fixture;  // no modem: the EVDO change is refused
    ASSERT_TRUE(fixture.started()) << fixture.daemon().Stderr();
    FieldtestRun run = Fieldtest(fixture, {"evdo_enable=1", "enabled_rats=WCDMA"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("== diag/config ==\n"));
    EXPECT_TRUE(std::regex_search(run.out, std::regex("\n  evdo_enable +0\n"))) << run.out;
    EXPECT_TRUE(std::regex_search(run.out, std::regex("\n  enabled_rats +WCDMA\n"))) << run.out;
    // The same again changes nothing, and says so.
    run = Fieldtest(fixture, {"enabled_rats=WCDMA"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, HasSubstr("already holds this"));
}

}  // namespace

// End to end with real processes: ppsd, modemsim and radio_tavora. The log
// mask is switched through diag/config as the screen does; radiostats shows
// what the DIAG side delivered, from modemsim or straight from a capture
// file (DIAG_DEVICE=file:...).
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "platform/dmux/dm_stats_object.h"
#include "testsupport/child_process.h"
#include "testsupport/daemon_fixture.h"
#include "testsupport/diag_capture_builder.h"
#include "testsupport/modemsim_process.h"

namespace {

using rt::test::ChildProcess;
using rt::test::DaemonFixture;
using rt::test::DaemonOptions;
using rt::test::ModemsimProcess;
using rt::test::TempDir;

// The three masks of a switch-on, as modemsim logs what it received.
const char* const kSwitchOnLines[] = {
    "modemsim: diag rx log-config equip=7 last=0x74ff mask_bytes=479 set=38:63",
    "modemsim: diag rx log-config equip=4 last=0x4777 mask_bytes=479 "
    "set=0:31,33:10,34:43,36:a0,39:05,42:40,44:20,67:10,68:02",
    "modemsim: diag rx log-config equip=11 last=0xb210 mask_bytes=479 "
    "set=16:82,18:82,24:04,29:40,47:82,48:20,51:08",
};
const char* const kSwitchOffLines[] = {
    "modemsim: diag rx log-config equip=7 last=0x74ff mask_bytes=479 set=-",
    "modemsim: diag rx log-config equip=4 last=0x4777 mask_bytes=479 set=-",
    "modemsim: diag rx log-config equip=11 last=0xb210 mask_bytes=479 set=-",
};

std::vector<std::string> LogConfigLines(const std::string& stderr_text) {
    std::vector<std::string> lines;
    std::istringstream in(stderr_text);
    for (std::string line; std::getline(in, line);)
        if (line.rfind("modemsim: diag rx log-config", 0) == 0) lines.push_back(line);
    return lines;
}

// One radiostats request; the status object's rrc lines afterwards.
std::string RadioStats(DaemonFixture& daemon) {
    if (daemon.Request("radiostats", "17").find("res::radiostats") == std::string::npos)
        return "no reply";
    return daemon.ReadObject(rt::test::kStatusUtraObject);
}

// Asks until the report holds `text`.
bool ReportEventually(DaemonFixture& daemon, const std::string& text) {
    return rt::test::Eventually([&] { return RadioStats(daemon).find(text) != std::string::npos; });
}

// A capture of 0x4125 packets: RRC_Disconnected, then CELL_DCH (the latest
// valid one), then URA_PCH in a frame whose CRC is broken.
std::string WriteRrcCapture(const TempDir& dir) {
    rt::test::DiagCaptureBuilder capture;
    capture.Log(0x4125, {0}, rt::test::DiagTimestampMs(1000))
        .Log(0x4125, {3}, rt::test::DiagTimestampMs(1010))
        .LogWithBadCrc(0x4125, {5}, rt::test::DiagTimestampMs(1020));
    std::string path = dir.file("rrc.qmdl");
    capture.WriteTo(path);
    return path;
}

// No sanitizer report in a process's standard error (sanitizer builds).
void ExpectCleanExit(const ChildProcess& process) {
    std::string text = process.Stderr();
    EXPECT_EQ(text.find("Sanitizer"), std::string::npos) << text;
    EXPECT_EQ(text.find("runtime error"), std::string::npos) << text;
}

DaemonOptions WithDiag(const std::string& diag_device, const TempDir& dir) {
    DaemonOptions options;
    options.env = {"DIAG_DEVICE=" + diag_device, "QMI_DEVICE=unix:" + dir.file("qmi.sock")};
    return options;
}

TEST(DiagLogProcessTest, CaptureThroughModemsim) {
    TempDir dir;
    std::string capture = WriteRrcCapture(dir);
    ModemsimProcess modem(
        R"({"diag": {"capture_pace": "fast", "capture_loop": false, "capture_after_masks": 3}})",
        {"--capture", capture});
    ASSERT_TRUE(modem.ready()) << modem.process().Stderr();
    ChildProcess* modemsim = &modem.process();
    DaemonOptions options;
    options.env = modem.DaemonEnv();
    DaemonFixture daemon(options);
    ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();

    std::string before = RadioStats(daemon);
    EXPECT_NE(before.find("rrc_state::No data available!"), std::string::npos) << before;
    EXPECT_NE(before.find("rrc_conn_state::No data available!"), std::string::npos) << before;

    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::1"}));
    ASSERT_TRUE(modemsim->WaitForStderr("modemsim: diag capture pass done sent=3"))
        << modemsim->Stderr();
    EXPECT_TRUE(ReportEventually(daemon, "rrc_conn_state::CELL_DCH")) << RadioStats(daemon);
    std::string report = RadioStats(daemon);
    EXPECT_NE(report.find("rrc_state::RRC_CONNECTED"), std::string::npos) << report;
    EXPECT_NE(report.find("rrc_release::No data available!"), std::string::npos) << report;
    EXPECT_NE(report.find("rrc_reject::No data available!"), std::string::npos) << report;
    EXPECT_EQ(report.find("URA_PCH"), std::string::npos) << "a frame with a broken CRC counted";
    EXPECT_EQ(LogConfigLines(modemsim->Stderr()),
              std::vector<std::string>(std::begin(kSwitchOnLines), std::end(kSwitchOnLines)));

    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::0"}));
    ASSERT_TRUE(modemsim->WaitForStderr("modemsim: diag client disconnected"))
        << modemsim->Stderr();
    auto lines = LogConfigLines(modemsim->Stderr());
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 3, lines.end()),
              std::vector<std::string>(std::begin(kSwitchOffLines), std::end(kSwitchOffLines)));
    report = RadioStats(daemon);
    EXPECT_NE(report.find("rrc_conn_state::CELL_DCH"), std::string::npos) << report;

    EXPECT_EQ(daemon.Stop(SIGTERM), 0);
    modemsim->Signal(SIGTERM);
    EXPECT_EQ(modemsim->Wait(), 0);
    ExpectCleanExit(daemon.daemon());
    ExpectCleanExit(*modemsim);
}

TEST(DiagLogProcessTest, CaptureStraightFromAFile) {
    TempDir dir;
    std::string capture = WriteRrcCapture(dir);
    DaemonFixture daemon(WithDiag("file:" + capture, dir));
    ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();

    std::string before = RadioStats(daemon);
    EXPECT_NE(before.find("rrc_state::No data available!"), std::string::npos) << before;

    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::1"}));
    EXPECT_TRUE(ReportEventually(daemon, "rrc_conn_state::CELL_DCH")) << daemon.daemon().Stderr();
    EXPECT_TRUE(daemon.daemon().WaitForStderr("Tavora: LTE Log Config sent successfully"));
    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::0"}));
    EXPECT_TRUE(daemon.daemon().WaitForStderr("Tavora: DM Mask is OFF"));
    std::string after = RadioStats(daemon);
    EXPECT_NE(after.find("rrc_conn_state::CELL_DCH"), std::string::npos) << after;
    EXPECT_EQ(after.find("URA_PCH"), std::string::npos) << after;
    // Terminated while the mask is on: Cleanup releases the replay.
    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::1"}));
    EXPECT_TRUE(daemon.daemon().WaitForStderr("Tavora: DM Client Init succeeded!!"));
    EXPECT_EQ(daemon.Stop(SIGTERM), 0);
    ExpectCleanExit(daemon.daemon());
}

TEST(DiagLogProcessTest, PacedLoopingFileReplayStopsWhenTheMaskGoesOff) {
    TempDir dir;
    // CELL_DCH, then CELL_FACH 150 ms later and again 150 ms after that: a
    // paced loop shows CELL_DCH again only when it starts over.
    rt::test::DiagCaptureBuilder capture;
    capture.Log(0x4125, {3}, rt::test::DiagTimestampMs(1000))
        .Log(0x4125, {2}, rt::test::DiagTimestampMs(1150))
        .Log(0x4125, {2}, rt::test::DiagTimestampMs(1300));
    std::string path = dir.file("loop.qmdl");
    ASSERT_TRUE(capture.WriteTo(path));
    DaemonFixture daemon(WithDiag("file:" + path + "?pace=real&loop=1", dir));
    ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();

    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::1"}));
    EXPECT_TRUE(ReportEventually(daemon, "rrc_conn_state::CELL_DCH")) << daemon.daemon().Stderr();
    EXPECT_TRUE(ReportEventually(daemon, "rrc_conn_state::CELL_FACH"));
    EXPECT_TRUE(ReportEventually(daemon, "rrc_conn_state::CELL_DCH")) << "the replay did not loop";

    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::0"}));
    ASSERT_TRUE(daemon.daemon().WaitForStderr("Tavora: DM Mask is OFF"));
    // The request is answered after the mask change is handled, so the
    // connection is released by now. That nothing arrives afterwards can
    // only be watched for: over several of the loop's 150 ms gaps. A loaded
    // machine can only make this check weaker, never fail it falsely.
    std::string frozen = RadioStats(daemon);
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    EXPECT_EQ(RadioStats(daemon), frozen);
    EXPECT_EQ(daemon.Stop(SIGTERM), 0);
    ExpectCleanExit(daemon.daemon());
}

// A log record's payload (record bytes from 12 on) with little-endian
// fields put at their record offsets, as a modem of today writes them.
struct Payload {
    explicit Payload(size_t record_size, uint8_t version) : bytes(record_size - 12) {
        bytes[0] = version;
    }
    Payload& Put(size_t record_offset, size_t width, uint64_t value) {
        for (size_t i = 0; i < width; ++i)
            bytes[record_offset - 12 + i] = static_cast<uint8_t>(value >> (8 * i));
        return *this;
    }
    std::vector<uint8_t> bytes;
};

// A band-66 phone, as modemsim streams it from a crafted capture and then
// falls quiet: the report shows the EARFCNs above 65535 whole and the RSSI
// of a 0xB17F v4; within a second of the stream going quiet the DIAG
// library's counts equal what modemsim sent, the secondary cell's
// measurement counted as dropped for that reason.
TEST(DiagLogProcessTest, TodaysModemStreamedThenQuiet) {
    TempDir dir;
    rt::test::DiagCaptureBuilder capture;
    uint64_t ts = rt::test::DiagTimestampMs(1000);
    capture
        .Log(
            0xB0C2,
            Payload(41, 3).Put(13, 2, 71).Put(15, 4, 66786).Put(19, 4, 131986).Put(31, 4, 66).bytes,
            ts)
        .Log(0xB179, Payload(40, 4).Put(20, 4, 66786).Put(24, 2, 71).Put(28, 2, 1336).bytes, ts)
        // A carrier-aggregation secondary cell (index 1) on band 2.
        .Log(0xB179, Payload(40, 4).Put(16, 1, 1).Put(20, 4, 975).Put(24, 2, 98).bytes, ts)
        // RSSI raw 672 in bits 10 to 23 of the word at 32: -68 dBm.
        .Log(0xB17F, Payload(48, 4).Put(16, 2, 66786).Put(18, 2, 71).Put(32, 4, 672u << 10).bytes,
             ts);
    std::string path = dir.file("band66.qmdl");
    ASSERT_TRUE(capture.WriteTo(path));
    ModemsimProcess modem(
        R"({"diag": {"capture_pace": "fast", "capture_loop": false, "capture_after_masks": 3}})",
        {"--capture", path});
    ASSERT_TRUE(modem.ready()) << modem.process().Stderr();
    DaemonOptions options;
    options.env = modem.DaemonEnv();
    DaemonFixture daemon(options);
    ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();
    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::1"}));
    ASSERT_TRUE(modem.process().WaitForStderr("modemsim: diag capture pass done sent=4"))
        << modem.process().Stderr();

    const std::vector<std::string> lines = {
        "lte_pci:n:71",       "lte_dl_freq:n:66786", "lte_ul_freq:n:131986",    "lte_band:n:66",
        "lte_earfcn:n:66786", "lte_phycellid:n:71",  "lte_serv_cell_rssi:n:-68"};
    std::string report = daemon.ReportHolding("lteopinfo", rt::test::kStatusEutraObject, lines);
    for (const std::string& line : lines)
        EXPECT_NE(report.find(line + "\n"), std::string::npos) << line << " in\n" << report;

    // The stream is quiet now: nothing more comes to trigger a write.
    EXPECT_TRUE(daemon.ObjectHolds(dmux::kDmStatsObject, "log_packets:n:4\n"))
        << daemon.ReadObject(dmux::kDmStatsObject);
    std::string stats = daemon.ReadObject(dmux::kDmStatsObject);
    for (const char* counts :
         {"\"B179\":{\"v4\":{\"as_is\":0,\"translated\":1,\"dropped\":1,\"secondary_cell\":1,",
          "\"B17F\":{\"v4\":{\"as_is\":0,\"translated\":1,\"dropped\":0,",
          "\"B0C2\":{\"v3\":{\"as_is\":0,\"translated\":1,"})
        EXPECT_NE(stats.find(counts), std::string::npos) << counts << " in\n" << stats;
    EXPECT_EQ(daemon.Stop(SIGTERM), 0);
    ExpectCleanExit(daemon.daemon());
}

TEST(DiagLogProcessTest, NoDiagPortLogsInitFailure) {
    TempDir dir;
    DaemonFixture daemon(WithDiag("unix:" + dir.file("nobody.sock"), dir));
    ASSERT_TRUE(daemon.started()) << daemon.daemon().Stderr();
    ASSERT_TRUE(daemon.WriteConfig({"diaglogmask::1"}));
    EXPECT_TRUE(daemon.daemon().WaitForStderr(
        "slog 10000 6               SetTavoraLogMask : ERROR: Tavora: DM Client Init failed!!"))
        << daemon.daemon().Stderr();
    EXPECT_EQ(daemon.Stop(SIGTERM), 0);
}

}  // namespace

// Enabled RATs: menu choices and modem reports against the device classes.
// The test plays the radio control service (the server of its control
// object, on a real broker); diag/config and status_persistent are
// socketpairs so every write of the daemon can be read back.
#include "config/enabled_rats.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "config/config_delta.h"
#include "platform/pps/pps_client.h"
#include "platform/qnx/slogf.h"
#include "service/tavora_context.h"
#include "testsupport/child_process.h"
#include "testsupport/message_pair.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

constexpr const char* kMenuNotSupportedFormat = "%30s : Tavora: Not Supported Device Rat %d\n";

class EnabledRatsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetEnabledRatsForTest();
        radio_control_ =
            pps_open("/pps/services/radioctrl/modem0/control?server", O_RDWR | O_CREAT, 0666);
        ASSERT_GE(radio_control_, 0);
        context_.config_fd = config_.ours;
        context_.persist_fd = persist_.ours;
        g_tavora_context = &context_;
    }
    void TearDown() override {
        g_tavora_context = nullptr;
        hardware_id[0] = '\0';
        ::close(radio_control_);
    }

    static void SetHardware(const char* id) {
        std::strncpy(hardware_id, id, kHardwareIdLength);
        hardware_id[kHardwareIdLength] = '\0';
    }
    void ModemReports(const std::string& lines) {
        ASSERT_TRUE(persist_.Send("@status_persistent\n" + lines));
    }
    void ModemReportsSetting(int setting) {
        ModemReports("configure_rats_state:json:{\"enabled_technologies\":" +
                     std::to_string(setting) + "}\n");
    }
    // The settings the radio control service received, in order. A request
    // is awaited up to wait_ms; none expected means waiting that long.
    std::vector<int> Sent(int wait_ms = 300) {
        std::vector<int> settings;
        static const std::regex request(
            "msg::configure_rats\nid::3323\ndat:json:\\{\"enabled_technologies\":(-?[0-9]+)\\}");
        for (const std::string& message : rt::test::DrainMessages(radio_control_, wait_ms)) {
            std::smatch match;
            if (std::regex_search(message, match, request)) settings.push_back(std::stoi(match[1]));
        }
        return settings;
    }
    // What was written to diag/config.
    std::vector<std::string> MenuWrites() { return config_.Drain(); }

    rt::test::PpsBroker broker_;
    int radio_control_ = -1;
    rt::test::MessagePair config_;
    rt::test::MessagePair persist_;
    TavoraContext context_;
};

std::string NotSupportedLine(int setting) {
    char line[128];
    std::snprintf(line, sizeof line, kMenuNotSupportedFormat, "Update_Rat_Menu", setting);
    return line;
}

struct SupportCase {
    const char* hardware;
    std::vector<int> supported;
};

TEST(RatTablesTest, DeviceClassesSupportOnlyTheirSettings) {
    const SupportCase cases[] = {
        {"0x51c0f9e4", {0, 2}},
        {"0x52c0f9e4", {0, 2, 16, 18}},
        {"0x53c0f9e4", {0, 4, 8, 12, 16, 28}},
        {"0X52C0F9E4", {0, 2, 16, 18}},  // case does not matter
        {"0x52c0f9e", {0, 2, 16, 18}},   // only nine characters are compared
        {"0x54c0f9e4", {}},
        {"", {}},  // no hardware ID read: not even 0
    };
    for (const SupportCase& c : cases) {
        std::strncpy(hardware_id, c.hardware, kHardwareIdLength);
        hardware_id[kHardwareIdLength] = '\0';
        std::vector<int> supported;
        for (int setting : {-1, 0, 2, 4, 6, 8, 12, 16, 18, 28, 30})
            if (Is_Rat_Supported(setting)) supported.push_back(setting);
        EXPECT_EQ(supported, c.supported) << c.hardware;
    }
    hardware_id[0] = '\0';
}

// Menu choices (enabled_rats in a configuration delta): the device, the
// setting in force before, the name chosen, the settings sent to radio
// control, the menu written back, the setting in force after and the
// setting logged as not supported (none: nothing logged). A choice the
// device takes and a refused one restored are EnabledRatsProcessTest's.
struct MenuCase {
    const char* hardware;
    int before;
    const char* menu;
    std::vector<int> sent;
    std::vector<std::string> menu_writes;
    int after;
    std::optional<int> not_supported;
};

TEST_F(EnabledRatsTest, MenuChoicesAgainstTheDeviceClass) {
    const MenuCase cases[] = {
        {"0x52c0f9e4", -1, "CDMA_ONLY", {}, {}, -1, -1},  // no setting known to restore
        {"0x51c0f9e4", -1, "WCDMA", {2}, {}, 2, std::nullopt},
        {"0x51c0f9e4", 2, "NONE", {0}, {}, 0, std::nullopt},
        {"0x51c0f9e4", 2, "LTE_ONLY", {2}, {"enabled_rats::WCDMA\n"}, 2, std::nullopt},
        {"0x52c0f9e4", -1, "wcdma", {}, {}, -1, std::nullopt},  // names match in their case
        {"0x52c0f9e4", 18, "GSM_ONLY", {}, {}, 18, std::nullopt},
        {"0x52c0f9e4", 18, "WCDMA+LTE", {}, {}, 18, std::nullopt},  // already in force
        {"", -1, "WCDMA", {}, {}, -1, -1},                          // unknown device
        {"0X53C0F9E4", 16, "CDMA1X+EVDO+LTE", {28}, {}, 28, std::nullopt},
        {"0x53c0f9e4", 16, "CDMA_ONLY", {4}, {}, 4, std::nullopt},
        {"0x53c0f9e4", 16, "EVDO_ONLY", {8}, {}, 8, std::nullopt},
        {"0x53c0f9e4", 16, "CDMA+EVDO", {12}, {}, 12, std::nullopt},
    };
    for (const MenuCase& c : cases) {
        SCOPED_TRACE(std::string(c.hardware) + " " + c.menu);
        ResetEnabledRatsForTest();
        SetHardware(c.hardware);
        current_rat = c.before;
        skip_rats_state = 0;
        SlogCapture capture;
        SelectRatByName(c.menu);
        EXPECT_EQ(Sent(), c.sent);
        EXPECT_THAT(MenuWrites(), ElementsAreArray(c.menu_writes));
        EXPECT_EQ(current_rat, c.after);
        if (c.not_supported) {
            EXPECT_TRUE(capture.contains(NotSupportedLine(*c.not_supported)));
        } else {
            EXPECT_THAT(capture.texts(), IsEmpty());
        }
        // After a request is sent, the modem's echo of it is to be skipped.
        if (!c.sent.empty()) {
            EXPECT_EQ(skip_rats_state, -1);
        }
    }
}

// Reports of the modem through status_persistent: as above, with the
// setting the modem reported in place of the name chosen.
struct ReportCase {
    const char* hardware;
    int before;
    int reported;
    std::vector<int> sent;
    std::vector<std::string> menu_writes;
    int after;
};

TEST_F(EnabledRatsTest, ModemReportsAgainstTheDeviceClass) {
    const ReportCase cases[] = {
        {"0x53c0f9e4", 28, 16, {16}, {"enabled_rats::LTE_ONLY\n"}, 16},
        {"0x53c0f9e4", 28, 0, {}, {}, 28},  // zero is ignored
        {"0x52c0f9e4", 18, 4, {18}, {"enabled_rats::WCDMA+LTE\n"}, 18},
        {"0x52c0f9e4", 18, 18, {}, {}, 18},
    };
    for (const ReportCase& c : cases) {
        SCOPED_TRACE(std::string(c.hardware) + " " + std::to_string(c.reported));
        ResetEnabledRatsForTest();
        SetHardware(c.hardware);
        current_rat = c.before;
        skip_rats_state = 0;
        ModemReportsSetting(c.reported);
        GetRatsState();
        EXPECT_EQ(Sent(), c.sent);
        EXPECT_THAT(MenuWrites(), ElementsAreArray(c.menu_writes));
        EXPECT_EQ(current_rat, c.after);
    }
}

TEST_F(EnabledRatsTest, ReportAfterOwnRequestIsSkippedOnce) {
    SetHardware("0x53c0f9e4");
    skip_rats_state = -1;
    current_rat = 28;
    ModemReportsSetting(16);
    GetRatsState();
    EXPECT_EQ(skip_rats_state, 0);
    EXPECT_EQ(current_rat, 28);
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_THAT(persist_.Drain(), IsEmpty());  // the report was read, not left behind
}

// Persistent statuses GetRatsState cannot use (null: no object open): one
// line, starting with what follows "GetRatsState : ", and no change.
struct UnusableReportCase {
    const char* lines;
    const char* logged;
};

TEST_F(EnabledRatsTest, UnusableReportLogsOneLineAndChangesNothing) {
    const UnusableReportCase cases[] = {
        {"modem_state::ready\n", "Tavora: Error in pps_decoder_push : "},
        {"configure_rats_state:json:{\"enabled_technologies\":\"LTE\"}\n",
         "Tavora: Error in pps_decoder_get_string for 'enabled_technologies' : "},
        {nullptr, "Failed to opend /pps/services/radioctrl/modem0/status_persistent("},
    };
    SetHardware("0x53c0f9e4");
    for (const UnusableReportCase& c : cases) {
        SCOPED_TRACE(c.logged);
        skip_rats_state = 0;
        if (c.lines != nullptr) {
            ModemReports(c.lines);
        } else {
            context_.persist_fd = -1;
        }
        SlogCapture capture;
        GetRatsState();
        ASSERT_EQ(capture.texts().size(), 1u);
        char prefix[256];
        std::snprintf(prefix, sizeof prefix, "%30s : %s", "GetRatsState", c.logged);
        EXPECT_THAT(capture.texts()[0], ::testing::StartsWith(prefix));
        EXPECT_EQ(current_rat, -1);
    }
}

TEST_F(EnabledRatsTest, NoConfigObjectLogsTwiceAndSendsNothing) {
    SetHardware("0x52c0f9e4");
    current_rat = 18;
    context_.config_fd = -1;
    SlogCapture capture;
    Update_Rat_Menu(current_rat);
    std::vector<std::string> texts = capture.texts();
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_THAT(
        texts[0],
        ::testing::HasSubstr(
            "Update_Rat_Menu : Failed to open /pps/services/radioctrl/modem0/diag/config("));
    EXPECT_THAT(texts[1], ::testing::EndsWith(
                              "Update_Rat_Menu : Tavora: Failed to open "
                              "/pps/services/radioctrl/modem0/diag/config?delta for encoding\n"));
    EXPECT_EQ(skip_rats_state, 0);
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(EnabledRatsTest, NoRadioControlObjectLogsAndKeepsSetting) {
    SetHardware("0x52c0f9e4");
    ::close(radio_control_);
    radio_control_ = -1;
    ASSERT_EQ(pps_unlink("/pps/services/radioctrl/modem0/control"), 0);
    current_rat = 2;
    SlogCapture capture;
    Enable_Rat(18);
    ASSERT_EQ(capture.texts().size(), 1u);
    EXPECT_THAT(capture.texts()[0],
                ::testing::HasSubstr(
                    "Enable_Rat : Failed to open /pps/services/radioctrl/modem0/control("));
    EXPECT_EQ(current_rat, 2);
    EXPECT_EQ(skip_rats_state, 0);
}

TEST_F(EnabledRatsTest, DeltaWithoutEnabledRatsReadsTheModemAtOnce) {
    // Through the real settings table: the delta carries no enabled_rats,
    // so the persistent status is read and followed even though its next
    // change was to be skipped.
    SetHardware("0x53c0f9e4");
    current_rat = 28;
    skip_rats_state = -1;
    ModemReportsSetting(16);
    ASSERT_TRUE(config_.Send("@config\nims_enable::1\n"));
    TavoraConfigObjDelta();
    EXPECT_EQ(current_rat, 16);
    EXPECT_EQ(Sent(2000), std::vector<int>{16});
    // Then ims_enable, after enabled_rats: with no QMI client open the
    // change is refused and written back.
    EXPECT_THAT(MenuWrites(), ElementsAre("enabled_rats::LTE_ONLY\n", "ims_enable:n:0\n"));
}

}  // namespace

// The web screen's handling of what it reads from the broker: any text as a
// status object, laid out, recorded and turned into CSV; any setting and
// listen address checked.
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/fieldtest/recording.h"
#include "tools/fieldtest/report_layout.h"
#include "tools/fieldtest/setting_rules.h"
#include "tools/fieldtest/web_screen.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<fieldtest::Attribute> attributes = fieldtest::ParseAttributes(text);
    nlohmann::ordered_json layout = fieldtest::ReportLayout(attributes);
    fieldtest::Recording recording;
    recording.Add(1, "report", layout["values"]);
    (void)recording.Csv();
    (void)fieldtest::JsonText(layout);
    for (const fieldtest::Attribute& a : attributes) (void)CheckSetting(a.name, a.value);
    std::string host;
    int port = 0;
    (void)fieldtest::ParseListenAddress(text.substr(0, 64), &host, &port);
    return 0;
}

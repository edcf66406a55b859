// libFuzzer target: what fieldtest serve --mqtt takes from the broker. The
// first byte picks the topic's last level (a device's status, its
// diag/config or one of the reports), the device and, in its top bit,
// whether the message was retained; the rest is the message, handled as
// the fleet handles one heard from the broker, and each sample or device
// it passes on is written out as JSON.
#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/fieldtest/mqtt_fleet.h"
#include "tools/fieldtest/screen_client.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    static const char* const kLeaves[] = {"status",     "config",  "lteopinfo",
                                          "radiostats", "dmstats", "set"};
    static fieldtest::MqttFleet fleet(
        fieldtest::MqttOptions{},
        [](const std::string&, nlohmann::ordered_json sample, bool) {
            (void)fieldtest::JsonText(sample);
        },
        [](const nlohmann::ordered_json& device) { (void)fieldtest::JsonText(device); });
    const std::string leaf = kLeaves[data[0] % std::size(kLeaves)];
    fleet.OnMessage("radio_tavora/car-" + std::to_string(data[0] / 8) + "/" + leaf,
                    std::string(reinterpret_cast<const char*>(data) + 1, size - 1),
                    (data[0] >> 7) & 1);
    (void)fleet.Devices();
    return 0;
}

// libFuzzer target: whatever the platform answers to a setting. The first
// byte picks the text's kind (the tethering prefix query's output, the
// connection service's answer to set_apn_setting or to get_apn_setting);
// the rest is the text as read (answers at most 4095 bytes, terminated).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "config/apn_name.h"
#include "config/tethering.h"
#include "reports/lte/apn_info.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    char text[4096];
    size_t length = size - 1 < sizeof text - 1 ? size - 1 : sizeof text - 1;
    std::memcpy(text, data + 1, length);
    text[length] = '\0';

    switch (data[0] % 3) {
        case 0: {
            char prefix[kTetherPrefixMax + 1];
            if (ReadTetherPrefix(std::string_view(text, length), prefix) != TetherPrefix::kRead)
                break;
            // Only hexadecimal digits and colons, within the field, ever
            // reach a command line, and the line always fits its buffer.
            if (std::strlen(prefix) > kTetherPrefixMax) std::abort();
            if (std::strspn(prefix, "0123456789abcdefABCDEF:") != std::strlen(prefix)) std::abort();
            char line[kTetherCommandSize];
            FormatTetherRouteCommand(prefix, line);
            if (std::strlen(line) + 1 >= sizeof line) std::abort();
            break;
        }
        case 1:
            CheckSetApnAnswerText(text);
            break;
        default:
            ReconcileApnAnswerText(text);
            if (std::strlen(CurrentApnName) > kCurrentApnNameSize - 1) std::abort();
            break;
    }
    return 0;
}

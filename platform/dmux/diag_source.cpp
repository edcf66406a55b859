#include "platform/dmux/diag_source.h"

#include <cstdlib>

namespace dmux {

namespace {

bool StartsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

// A positive decimal number.
bool ParseSubscription(const std::string& text, uint32_t* out) {
    if (text.empty() || text.size() > 9) return false;
    uint32_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<uint32_t>(c - '0');
    }
    if (value == 0) return false;
    *out = value;
    return true;
}

// "pace=real&loop=1": sets the options, false on anything unknown.
bool ParseFileOptions(const std::string& query, DiagSource* source) {
    size_t at = 0;
    while (at <= query.size()) {
        size_t amp = query.find('&', at);
        std::string item =
            query.substr(at, amp == std::string::npos ? std::string::npos : amp - at);
        if (item == "pace=real") {
            source->pace_real = true;
        } else if (item == "pace=fast") {
            source->pace_real = false;
        } else if (item == "loop=1") {
            source->loop = true;
        } else if (item == "loop=0") {
            source->loop = false;
        } else if (item.rfind("sub=", 0) == 0) {
            if (!ParseSubscription(item.substr(4), &source->subscription)) return false;
        } else if (!item.empty()) {
            return false;
        }
        if (amp == std::string::npos) break;
        at = amp + 1;
    }
    return true;
}

}  // namespace

std::optional<DiagSource> ParseDiagSource(const std::string& text) {
    DiagSource source;
    if (StartsWith(text, "unix:")) {
        source.kind = DiagSource::Kind::kUnixSocket;
        source.path = text.substr(5);
    } else if (StartsWith(text, "file:")) {
        source.kind = DiagSource::Kind::kFile;
        std::string rest = text.substr(5);
        size_t question = rest.find('?');
        source.path = rest.substr(0, question);
        if (question != std::string::npos && !ParseFileOptions(rest.substr(question + 1), &source))
            return std::nullopt;
    } else {
        source.kind = DiagSource::Kind::kSerial;
        source.path = text;
    }
    if (source.path.empty()) return std::nullopt;
    return source;
}

std::string DiagDeviceFromEnvironment() {
    const char* env = std::getenv(kDiagDeviceEnv);
    return (env != nullptr && *env != '\0') ? env : kDefaultDiagDevice;
}

uint32_t DiagSubscriptionFromEnvironment() {
    const char* env = std::getenv(kDiagSubscriptionEnv);
    uint32_t value = 0;
    if (env == nullptr || !ParseSubscription(env, &value)) return 0;
    return value;
}

}  // namespace dmux

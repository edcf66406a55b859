#include "platform/dmux/packet_versions/version_counts.h"

#include <algorithm>
#include <cstdio>

namespace dmux {

VersionCount* VersionCounts::Find(uint16_t code, PacketVersion version) {
    for (size_t i = 0; i < entries_.size(); ++i) {
        if (entries_[i].code == code && entries_[i].version == version) {
            last_ = i;
            return &entries_[i];
        }
    }
    entries_.push_back({code, version});
    last_ = entries_.size() - 1;
    return &entries_.back();
}

std::vector<VersionCount> VersionCounts::Sorted() const {
    std::vector<VersionCount> out = entries_;
    std::sort(out.begin(), out.end(), [](const VersionCount& a, const VersionCount& b) {
        return a.code != b.code ? a.code < b.code : a.version < b.version;
    });
    return out;
}

uint64_t VersionCounts::Total(VersionVerdict verdict) const {
    uint64_t total = 0;
    for (const VersionCount& e : entries_)
        total += verdict == VersionVerdict::kAsIs         ? e.as_is
                 : verdict == VersionVerdict::kTranslated ? e.translated
                                                          : e.dropped;
    return total;
}

std::string VersionText(PacketVersion version) {
    if (version.version == PacketVersion::kNone) return "-";
    std::string text = "v" + std::to_string(version.version);
    if (version.subpacket != PacketVersion::kNone) text += "/s" + std::to_string(version.subpacket);
    return text;
}

std::string VersionCountsJson(const std::vector<VersionCount>& counts) {
    std::string json = "{";
    for (size_t i = 0; i < counts.size(); ++i) {
        const VersionCount& c = counts[i];
        bool new_code = i == 0 || counts[i - 1].code != c.code;
        if (new_code) {
            if (i != 0) json += "},";
            char code[16];
            std::snprintf(code, sizeof code, "\"%04X\":{", c.code);
            json += code;
        } else {
            json += ",";
        }
        json += "\"" + VersionText(c.version) + "\":{\"as_is\":" + std::to_string(c.as_is) +
                ",\"translated\":" + std::to_string(c.translated) +
                ",\"dropped\":" + std::to_string(c.dropped);
        for (size_t r = 1; r < kDropReasons; ++r)
            json += ",\"" + std::string(DropReasonName(DropReason(r))) +
                    "\":" + std::to_string(c.dropped_for[r]);
        json += "}";
    }
    if (!counts.empty()) json += "}";
    return json + "}";
}

}  // namespace dmux

#include "platform/dmux/dm_stats_object.h"

#include <fcntl.h>
#include <unistd.h>

#include "platform/pps/pps_client.h"
#include "platform/pps/pps_encoder.h"

namespace dmux {

std::string DmStatsText(const DmStatsValues& v) {
    pps_encoder_t encoder;
    pps_encoder_initialize(&encoder, false);
    pps_encoder_add_int64(&encoder, "frames_good", static_cast<int64_t>(v.frames_good));
    pps_encoder_add_int64(&encoder, "frames_bad", static_cast<int64_t>(v.frames_bad));
    pps_encoder_add_int64(&encoder, "log_packets", static_cast<int64_t>(v.log_packets));
    pps_encoder_add_int64(&encoder, "delivered", static_cast<int64_t>(v.delivered));
    pps_encoder_add_int64(&encoder, "translated", static_cast<int64_t>(v.translated));
    pps_encoder_add_int64(&encoder, "dropped", static_cast<int64_t>(v.dropped));
    pps_encoder_add_int64(&encoder, "other_subscription",
                          static_cast<int64_t>(v.other_subscription));
    pps_encoder_add_int64(&encoder, "subscription", v.subscription);
    pps_encoder_add_int64(&encoder, "replay_percent", v.replay_percent);
    pps_encoder_add_int64(&encoder, "replay_passes", static_cast<int64_t>(v.replay_passes));
    pps_encoder_add_json(&encoder, "versions", v.versions_json.c_str());
    std::string text(pps_encoder_buffer(&encoder),
                     static_cast<size_t>(pps_encoder_length(&encoder)));
    pps_encoder_cleanup(&encoder);
    return text;
}

DmStatsObject::~DmStatsObject() {
    if (fd_ >= 0) ::close(fd_);
}

bool DmStatsObject::Due() const {
    return std::chrono::steady_clock::now() - last_ >= kDmStatsInterval;
}

bool DmStatsObject::Changed(const DmStatsValues& v) const {
    const DmStatsValues& l = last_values_;
    // Not written yet (or the broker was away): try again once due. The
    // version counts only move when the counts below do.
    if (!written_) return Due();
    return v.frames_good != l.frames_good || v.frames_bad != l.frames_bad ||
           v.log_packets != l.log_packets || v.delivered != l.delivered || v.dropped != l.dropped ||
           v.other_subscription != l.other_subscription || v.subscription != l.subscription ||
           v.replay_percent != l.replay_percent || v.replay_passes != l.replay_passes;
}

void DmStatsObject::Publish(const DmStatsValues& values, bool force) {
    if (!force && !Due()) return;
    last_ = std::chrono::steady_clock::now();
    written_ = false;
    if (fd_ < 0) {
        std::string path = std::string(kDmStatsObject) + "?nopersist";
        fd_ = pps_open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        if (fd_ < 0) return;
    }
    std::string text = DmStatsText(values);
    if (::write(fd_, text.data(), text.size()) < 0) {
        ::close(fd_);  // the broker went away; open again next time
        fd_ = -1;
        return;
    }
    written_ = true;
    last_values_ = values;
    last_values_.versions_json.clear();
}

}  // namespace dmux

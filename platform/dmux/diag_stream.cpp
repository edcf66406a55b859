#include "platform/dmux/diag_stream.h"

namespace dmux {

void DiagStream::OnFrame(std::span<const uint8_t> body) {
    DiagFrame frame = ParseDiagFrame(body);
    switch (frame.kind) {
        case DiagFrameKind::kLogPacket:
            ++stats_.log_packets;
            if (observer_) observer_(frame);
            if (frame.wrapped) {
                ++stats_.wrapped;
                if (!subscription_chosen_) {
                    subscription_ = frame.subscription;
                    subscription_chosen_ = true;
                }
                if (frame.subscription != subscription_) {
                    ++stats_.other_subscription;
                    break;
                }
            }
            if (mask_ == nullptr || mask_->Enabled(frame.log_code)) {
                Translation t = translator_.Translate(frame.log_code, frame.record);
                versions_.Count(frame.log_code, t.version, t.verdict);
                if (t.verdict == VersionVerdict::kDropped) {
                    ++stats_.dropped;
                    break;
                }
                if (t.verdict == VersionVerdict::kTranslated) ++stats_.translated;
                ++stats_.delivered;
                if (sink_ != nullptr) sink_(context_, frame.log_code, t.record);
            }
            break;
        case DiagFrameKind::kLogConfig:
            ++stats_.log_config;
            if (config_sink_) config_sink_(body);
            break;
        case DiagFrameKind::kMarker:
            ++stats_.markers;
            break;
        case DiagFrameKind::kMalformed:
            ++stats_.malformed;
            break;
        case DiagFrameKind::kOther:
            ++stats_.other;
            break;
    }
}

}  // namespace dmux

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
                    // Counted by code and version too, where the mask wants the code.
                    if (mask_ == nullptr || mask_->Enabled(frame.log_code))
                        versions_.Count(frame.log_code, VersionOf(frame.log_code, frame.record),
                                        VersionVerdict::kDropped, DropReason::kOtherSubscription);
                    break;
                }
            }
            // Most packets are of codes the mask leaves out: those end here,
            // without a call.
            if (mask_ != nullptr && !mask_->Enabled(frame.log_code)) break;
            Offer(frame, nullptr);
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

void DiagStream::Reoffer(const DiagFrame& frame, const LogCodeMask& only) {
    if (frame.kind != DiagFrameKind::kLogPacket) return;
    if (frame.wrapped && (!subscription_chosen_ || frame.subscription != subscription_)) return;
    Offer(frame, &only);
}

void DiagStream::Offer(const DiagFrame& frame, const LogCodeMask* mask) {
    if (mask != nullptr && !mask->Enabled(frame.log_code)) return;
    Translation t = translator_.Translate(frame.log_code, frame.record);
    versions_.Count(frame.log_code, t.version, t.verdict, t.reason);
    if (t.verdict == VersionVerdict::kDropped) {
        ++stats_.dropped;
        return;
    }
    if (t.verdict == VersionVerdict::kTranslated) ++stats_.translated;
    ++stats_.delivered;
    if (sink_ != nullptr) sink_(context_, frame.log_code, t.record);
}

}  // namespace dmux

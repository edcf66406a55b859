// The receiving half of a DIAG port: bytes in, log records of enabled codes
// out. Deframes, parses, unwraps multi-SIM frames and keeps one
// subscription's, filters by the log-code mask, brings each record to the
// daemon's layout of its code (packet_versions/) and hands it to the sink;
// 0x73 answers go to their own sink.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "platform/dmux/diag_packet.h"
#include "platform/dmux/hdlc.h"
#include "platform/dmux/log_code_mask.h"
#include "platform/dmux/packet_versions/packet_translator.h"
#include "platform/dmux/packet_versions/version_counts.h"

namespace dmux {

struct DiagStreamStats {
    uint64_t log_packets = 0;         // good log frames, wrapped or not
    uint64_t wrapped = 0;             // of those, inside a multi-SIM wrapper
    uint64_t delivered = 0;           // passed the mask and the version check
    uint64_t translated = 0;          // of those, rewritten into the daemon's layout
    uint64_t dropped = 0;             // passed the mask, but of a version not deliverable
    uint64_t other_subscription = 0;  // wrapped for a subscription not chosen
    uint64_t log_config = 0;          // 0x73 frames
    uint64_t markers = 0;             // 0xEE EE frames
    uint64_t other = 0;               // any other kind of frame
    uint64_t malformed = 0;           // log frames too short for a record header
};

class DiagStream {
  public:
    // Multi-SIM frames: kFirstSubscription keeps the subscription of the
    // first wrapped packet seen and skips every other one, so that the
    // daemon never sees two modems' packets mixed.
    static constexpr uint32_t kFirstSubscription = 0;

    using RecordSink = void (*)(void* context, uint16_t code, std::span<const uint8_t> record);
    using ConfigSink = std::function<void(std::span<const uint8_t> body)>;

    DiagStream(const LogCodeMask* mask, RecordSink sink, void* context)
        : mask_(mask), sink_(sink), context_(context) {}

    void SetSubscription(uint32_t subscription) {
        subscription_ = subscription;
        subscription_chosen_ = subscription != kFirstSubscription;
    }
    // The subscription kept; 0 while none is chosen yet.
    uint32_t subscription() const { return subscription_chosen_ ? subscription_ : 0; }

    void SetConfigSink(ConfigSink sink) { config_sink_ = std::move(sink); }
    // Called with every good log record before the mask (counts, tests).
    void SetObserver(std::function<void(const DiagFrame&)> observer) {
        observer_ = std::move(observer);
    }

    void Feed(std::span<const uint8_t> bytes) {
        deframer_.Feed(bytes.data(), bytes.size(),
                       [this](std::span<const uint8_t> body) { OnFrame(body); });
    }
    void Finish() { deframer_.Finish(); }

    const HdlcStats& frames() const { return deframer_.stats(); }
    const DiagStreamStats& stats() const { return stats_; }
    const VersionCounts& versions() const { return versions_; }

    // Handles one deframed body (also used for frames found another way).
    void OnFrame(std::span<const uint8_t> body);
    // Offers a log packet already counted by OnFrame once more, to the codes
    // `only` enables: a replay catching up on codes enabled after it had
    // gone past their packets. Counted as delivered, translated or dropped.
    void Reoffer(const DiagFrame& frame, const LogCodeMask& only);

  private:
    void Offer(const DiagFrame& frame, const LogCodeMask* mask);

    const LogCodeMask* mask_;
    RecordSink sink_;
    void* context_;
    ConfigSink config_sink_;
    std::function<void(const DiagFrame&)> observer_;
    HdlcDeframer deframer_;
    DiagStreamStats stats_;
    uint32_t subscription_ = kFirstSubscription;
    bool subscription_chosen_ = false;
    PacketTranslator translator_;
    VersionCounts versions_;
};

}  // namespace dmux

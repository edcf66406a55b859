#include "platform/dmux/log_code_mask.h"

namespace dmux {

void LogCodeMask::SetEquipment(uint32_t equipment_id, uint32_t last_item,
                               std::span<const uint8_t> mask) {
    if (equipment_id >= kEquipmentIds) return;
    uint32_t last = last_item & 0xFFF;
    for (uint32_t item = 0; item < kItems; ++item) {
        bool on =
            item <= last && (item >> 3) < mask.size() && ((mask[item >> 3] >> (item & 7)) & 1);
        Enable(static_cast<uint16_t>(equipment_id << 12 | item), on);
    }
}

void LogCodeMask::Enable(uint16_t code, bool on) {
    uint64_t bit = uint64_t{1} << (code & 63);
    if (on) {
        words_[code >> 6].fetch_or(bit, std::memory_order_relaxed);
    } else {
        words_[code >> 6].fetch_and(~bit, std::memory_order_relaxed);
    }
}

void LogCodeMask::Clear() {
    for (auto& w : words_) w.store(0, std::memory_order_relaxed);
}

bool LogCodeMask::Any() const {
    for (const auto& w : words_)
        if (w.load(std::memory_order_relaxed) != 0) return true;
    return false;
}

}  // namespace dmux

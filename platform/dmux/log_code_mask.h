// Which log codes are enabled, as a modem keeps it: per equipment id (the
// code's top 4 bits) one bit per item (the low 12 bits). A set-mask request
// replaces one equipment id's bits: item i is bit (i & 7) of mask byte
// (i >> 3), for items up to the request's last item.
//
// Readers (the delivery thread) and the writer (the thread that sends the
// masks) share it without a lock: every word is atomic.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

namespace dmux {

class LogCodeMask {
  public:
    static constexpr int kEquipmentIds = 16;
    static constexpr int kItems = 4096;

    // `last_item` may be given as a whole log code (0x74FF): its low 12 bits
    // are the last item. Bits beyond the mask bytes given count as clear.
    void SetEquipment(uint32_t equipment_id, uint32_t last_item, std::span<const uint8_t> mask);
    void Enable(uint16_t code, bool on);
    void Clear();

    bool Enabled(uint16_t code) const {
        return (words_[code >> 6].load(std::memory_order_relaxed) >> (code & 63)) & 1;
    }
    bool Any() const;

  private:
    std::atomic<uint64_t> words_[kEquipmentIds * kItems / 64] = {};
};

}  // namespace dmux

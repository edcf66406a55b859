#include "diaglog/rlc_view.h"

#include <algorithm>

RlcConfigView::RlcConfigView(std::span<const uint8_t> header, uint8_t rb_count,
                             std::span<const uint8_t> rb_list, const RlcBearerTables& tables,
                             uint64_t generation)
    : rb_count_(rb_count),
      list_size_(std::min(rb_list.size(), kMaxListSize)),
      tables_(tables),
      generation_(generation) {
    std::copy_n(header.begin(), std::min(header.size(), kHeaderSize), header_.begin());
    std::copy_n(rb_list.begin(), list_size_, list_.begin());
}

bool RlcConfigView::has_packet() const {
    return rt::FieldReader(header_).Get(log_layout::kPacketWord) != 0;
}

rt::FieldReader RlcConfigView::ListEntryAt(size_t p) const {
    if (p >= list_size_) return rt::FieldReader({});
    return rt::FieldReader(std::span<const uint8_t>(list_.data() + p, list_size_ - p));
}

rt::FieldReader RlcStatsView::Entry(size_t s) const {
    // Divided rather than multiplied: no count can overflow the bound.
    if (entry_size_ == 0 || s >= entries_size_ / entry_size_) return rt::FieldReader({});
    return rt::FieldReader(std::span<const uint8_t>(entries_.get() + s * entry_size_, entry_size_));
}

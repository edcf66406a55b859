#include "tools/modemsim/vendor_service.h"

#include <algorithm>

#include "platform/common/byte_layout.h"
#include "platform/qmi_client/qmux_codec.h"
#include "tools/modemsim/scenario.h"
#include "tools/modemsim/world_support.h"

namespace modemsim {

namespace {

// Offsets below are from the start of the daemon's 1331-byte buffer; the
// measurement TLV's value begins at byte 10.
constexpr size_t kValueStart = 10;

// The buffer from its start, written field by field; Take() keeps the
// measurement TLV's value. A field that does not fit is not written.
class Payload {
  public:
    Payload() = default;
    Payload(const Payload&) = delete;  // the writer holds the buffer
    void U8(size_t offset, int value) { writer_.Write(rt::Field<uint8_t>{offset}, value); }
    void U16(size_t offset, int value) { writer_.Write(rt::Field<uint16_t>{offset}, value); }
    std::vector<uint8_t> Take() {
        bytes_.erase(bytes_.begin(), bytes_.begin() + kValueStart);
        return std::move(bytes_);
    }

  private:
    std::vector<uint8_t> bytes_ = std::vector<uint8_t>(kRatMeasResponseSize, 0);
    rt::FieldWriter writer_{bytes_};
};

// A cell: PSC u16, Ec/Io s16, RSCP s16.
void PutUmtsCell(Payload* payload, size_t at, const nlohmann::json& cell) {
    payload->U16(at, IntOr(cell, "psc", 0));
    payload->U16(at + 2, IntOr(cell, "ecio", 0));
    payload->U16(at + 4, IntOr(cell, "rscp", 0));
}

// UMTS payload (RAT type 3), at most what each list holds.
void PutUmts(Payload* payload, const nlohmann::json& umts) {
    payload->U16(20, IntOr(umts, "serving_uarfcn", 0));
    const nlohmann::json& intra = List(umts, "intra_freq");
    const nlohmann::json& active = List(umts, "active_set");
    payload->U8(24, IntOr(umts, "intra_freq_count", static_cast<int>(intra.size())));
    payload->U8(25, IntOr(umts, "active_set_count", static_cast<int>(active.size())));
    for (size_t k = 0; k < std::min<size_t>(intra.size(), 8); ++k)
        PutUmtsCell(payload, 26 + 10 * k, intra[k]);
    for (size_t j = 0; j < std::min<size_t>(active.size(), 6); ++j)
        PutUmtsCell(payload, 106 + 10 * j, active[j]);
    const nlohmann::json& inter = List(umts, "inter_freq");
    payload->U16(166, IntOr(umts, "inter_freq_count", static_cast<int>(inter.size())));
    for (size_t f = 0; f < std::min<size_t>(inter.size(), 2); ++f) {
        size_t block = 168 + 102 * f;
        const nlohmann::json& cells = List(inter[f], "cells");
        payload->U16(block, IntOr(inter[f], "uarfcn", 0));
        payload->U16(block + 4, IntOr(inter[f], "cell_count", static_cast<int>(cells.size())));
        for (size_t c = 0; c < std::min<size_t>(cells.size(), 8); ++c)
            PutUmtsCell(payload, block + 6 + 12 * c, cells[c]);
    }
    const nlohmann::json& gsm = List(umts, "gsm");
    payload->U16(372, IntOr(umts, "gsm_count", static_cast<int>(gsm.size())));
    for (size_t g = 0; g < gsm.size(); ++g) {
        size_t at = 374 + 10 * g;
        payload->U16(at, IntOr(gsm[g], "arfcn", 0));
        payload->U16(at + 2, IntOr(gsm[g], "bsic", 0));
        payload->U16(at + 4, IntOr(gsm[g], "rssi", 0));
    }
}

// LTE payload with GERAN neighbours (RAT type 4): 77-byte frequency groups
// of up to 8 nine-byte cells from byte 277.
void PutLteGeran(Payload* payload, const nlohmann::json& lte) {
    const nlohmann::json& groups = List(lte, "groups");
    size_t group_count = std::min<size_t>(groups.size(), 13);
    payload->U8(276, IntOr(lte, "group_count", static_cast<int>(group_count)));
    for (size_t g = 0; g < group_count; ++g) {
        size_t group = 277 + 77 * g;
        const nlohmann::json& cells = List(groups[g], "cells");
        size_t cell_count = std::min<size_t>(cells.size(), 8);
        payload->U8(group, IntOr(groups[g], "cell_count", static_cast<int>(cell_count)));
        for (size_t e = 0; e < cell_count; ++e) {
            size_t cell = group + 4 + 9 * e;
            payload->U8(cell, IntOr(cells[e], "present", 1));
            payload->U8(cell + 1, IntOr(cells[e], "bsic", 0));
            payload->U16(cell + 2, IntOr(cells[e], "rssi", 0));
        }
    }
}

std::vector<uint8_t> ResultTlv(uint16_t result, uint16_t error) {
    std::vector<uint8_t> tlvs;
    qmux::AppendTlv(&tlvs, qmux::kResultTlv, qmux::ResultTlvValue({result, error}));
    return tlvs;
}

std::optional<uint8_t> FirstArgument(std::span<const uint8_t> tlvs) {
    std::optional<qmux::Tlv> tlv = qmux::FindTlv(tlvs, 0x01);
    if (!tlv || tlv->value.empty()) return std::nullopt;
    return tlv->value[0];
}

}  // namespace

VendorService::VendorService(nlohmann::json qmi_section, std::shared_ptr<const WcdmaWorld> world,
                             std::shared_ptr<const LteWorld> lte)
    : qmi_(std::move(qmi_section)), world_(std::move(world)), lte_(std::move(lte)) {
    states_ = qmi_.contains("states") ? qmi_["states"] : nlohmann::json::object();
}

const nlohmann::json* VendorService::PerMessage(const char* table, uint16_t message_id) const {
    auto found = qmi_.find(table);
    if (found == qmi_.end() || !found->is_object()) return nullptr;
    for (auto& [key, value] : found->items()) {
        std::optional<unsigned> id = ParseMessageIdKey(key);
        if (id && *id == message_id) return &value;
    }
    return nullptr;
}

std::vector<uint8_t> VendorService::RatMeasValue(uint8_t rat_type) const {
    double seconds = 0.0;
    if (rat_type == 3 && world_) seconds = world_->Elapsed();
    if (rat_type == 4 && lte_) seconds = lte_->Elapsed();
    return RatMeasValueAt(rat_type, seconds);
}

std::vector<uint8_t> VendorService::RatMeasValueAt(uint8_t rat_type, double world_seconds) const {
    Payload payload;
    const char* section = rat_type == 3 ? "umts" : rat_type == 4 ? "lte_geran" : nullptr;
    bool measured = (rat_type == 3 && world_ && world_->enabled()) ||
                    (rat_type == 4 && lte_ && lte_->enabled());
    if (section == nullptr || (!measured && !qmi_.contains(section)))
        return payload.Take();  // nothing present
    nlohmann::json values = nlohmann::json::object();
    if (measured && rat_type == 3) values = UmtsMeasurementJson(world_->At(world_seconds));
    if (measured && rat_type == 4) values = LteGeranMeasurementJson(lte_->At(world_seconds));
    if (qmi_.contains(section)) values.merge_patch(qmi_[section]);
    payload.U8(10, IntOr(values, "present", 1));
    payload.U8(11, rat_type);
    payload.U8(12, IntOr(values, "valid", 1));
    if (rat_type == 3) PutUmts(&payload, values);
    if (rat_type == 4) PutLteGeran(&payload, values);
    return payload.Take();
}

std::vector<uint8_t> VendorService::MiscInfoTlvs() const {
    std::vector<uint8_t> tlvs;
    const nlohmann::json misc = qmi_.value("misc_info", nlohmann::json::object());
    auto text = [&](uint8_t type, const char* key) {
        if (misc.contains(key) && misc[key].is_string()) {
            std::string value = misc[key].get<std::string>();
            qmux::AppendTlv(&tlvs, type,
                            {reinterpret_cast<const uint8_t*>(value.data()), value.size()});
        }
    };
    auto byte = [&](uint8_t type, const char* key) {
        if (misc.contains(key) && misc[key].is_number()) {
            qmux::AppendTlv(&tlvs, type,
                            std::vector<uint8_t>{static_cast<uint8_t>(IntOf(misc[key], 0))});
        }
    };
    text(0x10, "pesn");
    byte(0x11, "sci");
    byte(0x12, "mob_p_rev");
    text(0x13, "mob_fw");
    text(0x14, "model");
    return tlvs;
}

Reply VendorService::Answer(uint16_t message_id, std::span<const uint8_t> request_tlvs) {
    Reply reply;
    if (const nlohmann::json* delay = PerMessage("delay_ms", message_id)) {
        // A list is used in turn, its last entry from then on.
        if (delay->is_array() && !delay->empty()) {
            size_t turn = delay_turns_[message_id]++;
            delay = &(*delay)[std::min(turn, delay->size() - 1)];
        }
        if (delay->is_number()) reply.delay_ms = std::max(0, IntOf(*delay, 0));
    }
    if (const nlohmann::json* raw = PerMessage("raw_response", message_id)) {
        // A list is answered in turn, its last entry from then on.
        const nlohmann::json* text = raw;
        if (raw->is_array() && !raw->empty()) {
            size_t turn = raw_turns_[message_id]++;
            text = &(*raw)[std::min(turn, raw->size() - 1)];
        }
        if (text->is_string()) {
            if (std::optional<std::vector<uint8_t>> bytes = ParseHex(text->get<std::string>())) {
                reply.tlvs = std::move(*bytes);
                return reply;
            }
        }
    }
    if (const nlohmann::json* refuse = PerMessage("refuse", message_id);
        refuse && refuse->is_number()) {
        reply.tlvs = ResultTlv(1, static_cast<uint16_t>(IntOf(*refuse, 0)));
        return reply;
    }
    std::optional<uint8_t> argument = FirstArgument(request_tlvs);
    switch (message_id) {
        case kMsgSetEns:
        case kMsgSet1xState:
        case kMsgSetEvdoState:
        case kMsgSetImsTestMode:
            if (!argument) {
                reply.tlvs = ResultTlv(1, kErrMissingArgument);
                break;
            }
            if (message_id == kMsgSetEns) ens_ = *argument;
            if (message_id == kMsgSet1xState) states_["onex"] = *argument;
            if (message_id == kMsgSetEvdoState) states_["evdo"] = *argument;
            if (message_id == kMsgSetImsTestMode) states_["ims"] = *argument;
            reply.tlvs = ResultTlv(0, 0);
            break;
        case kMsgGet1xState:
            reply.tlvs = ResultTlv(0, 0);
            qmux::AppendTlv(&reply.tlvs, 0x01,
                            std::vector<uint8_t>{static_cast<uint8_t>(IntOr(states_, "onex", 0))});
            break;
        case kMsgRatMeasInfo:
            if (!argument) {
                reply.tlvs = ResultTlv(1, kErrMissingArgument);
                break;
            }
            reply.tlvs = ResultTlv(0, 0);
            qmux::AppendTlv(&reply.tlvs, kRatMeasTlv, RatMeasValue(*argument));
            break;
        case kMsgMiscInfo: {
            reply.tlvs = ResultTlv(0, 0);
            std::vector<uint8_t> misc = MiscInfoTlvs();
            reply.tlvs.insert(reply.tlvs.end(), misc.begin(), misc.end());
            break;
        }
        default:
            reply.tlvs = ResultTlv(1, kErrInvalidCommand);
            break;
    }
    return reply;
}

}  // namespace modemsim

// modemsim's vendor QMI service (0xE3): the answer to each request, from
// the scenario's "qmi" section. Refusals, delays and raw responses apply to
// any message id; "delay_ms" and "raw_response" entries may be lists, used
// one per request in turn, the last one from then on.
//
// RAT measurements of type 3: without a world, from the "umts" section.
// With a WCDMA world (wcdma_world.h), from the world at the moment of the
// request, with the "umts" section's keys, when it has any, laid over the
// world's (a list given there replaces the world's list whole), so a
// scenario that names a value still gets exactly that value.
//
// RAT measurements of type 4 likewise: from the "lte_geran" section without
// an LTE world, from the world's GERAN neighbours (lte_world.h) with one,
// the section's keys laid over them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <span>
#include <vector>

#include "tools/modemsim/lte_world.h"
#include "tools/modemsim/wcdma_world.h"

namespace modemsim {

inline constexpr uint8_t kVendorService = 0xE3;

// Errors the service reports in its result TLV.
inline constexpr uint16_t kErrMissingArgument = 0x0011;
inline constexpr uint16_t kErrInvalidCommand = 0x0047;

// Vendor messages.
inline constexpr uint16_t kMsgRatMeasInfo = 0x09;
inline constexpr uint16_t kMsgMiscInfo = 0x14;
inline constexpr uint16_t kMsgGet1xState = 0x15;
inline constexpr uint16_t kMsgSet1xState = 0x16;
inline constexpr uint16_t kMsgSetEvdoState = 0x18;
inline constexpr uint16_t kMsgSetImsTestMode = 0x1A;
inline constexpr uint16_t kMsgSetEns = 0x1F;

// The RAT measurement response as the daemon's buffer holds it: 1331
// bytes, of which the first 10 are the result TLV and the measurement
// TLV's header; the measurement TLV (type 0x10) carries the other 1321.
inline constexpr size_t kRatMeasResponseSize = 1331;
inline constexpr uint8_t kRatMeasTlv = 0x10;

struct Reply {
    std::vector<uint8_t> tlvs;
    int delay_ms = 0;
};

class VendorService {
  public:
    explicit VendorService(nlohmann::json qmi_section,
                           std::shared_ptr<const WcdmaWorld> world = nullptr,
                           std::shared_ptr<const LteWorld> lte = nullptr);

    Reply Answer(uint16_t message_id, std::span<const uint8_t> request_tlvs);

    // What the last set requests stored (tests and logs).
    int ens() const { return ens_; }
    const nlohmann::json& states() const { return states_; }

    // The measurement TLV's value for a RAT type (1321 bytes).
    std::vector<uint8_t> RatMeasValue(uint8_t rat_type) const;
    // The same with the world (WCDMA for type 3, LTE for type 4) taken
    // `world_seconds` after it began.
    std::vector<uint8_t> RatMeasValueAt(uint8_t rat_type, double world_seconds) const;
    // The misc-information TLVs (0x10 to 0x14), without the result TLV.
    std::vector<uint8_t> MiscInfoTlvs() const;

  private:
    const nlohmann::json* PerMessage(const char* table, uint16_t message_id) const;

    nlohmann::json qmi_;
    std::shared_ptr<const WcdmaWorld> world_;
    std::shared_ptr<const LteWorld> lte_;
    nlohmann::json states_;
    int ens_ = -1;
    std::map<uint16_t, size_t> raw_turns_;
    std::map<uint16_t, size_t> delay_turns_;
};

}  // namespace modemsim

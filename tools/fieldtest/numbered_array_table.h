// How fieldtest shows lteopinfo's RLC status arrays and umtsopinfo's QoS
// profile: a JSON array of objects whose attribute names carry the
// object's number (rb_cfg_idx1, mode1, ... in the first object;
// rb_cfg_idx2, ... in the second) becomes a small table, one row per
// attribute with the number taken off and one column per object, instead
// of one long JSON line. apn1_pdp_qos is one object of unnumbered members:
// one column, a row per member.
//
//   rlc_ul_drb_status (2)
//     attribute    #1  #2
//     rb_cfg_idx    3   4
//     mode          -  UM
#pragma once

#include <optional>
#include <string>

// True for the attributes shown as tables: the four RLC status arrays, and
// umtsopinfo's apn1_pdp_qos (one object whose members become the rows).
bool IsTabledArray(const std::string& name);

// The table of `name` with each line indented by `indent` spaces; none when
// the value is not a JSON array of objects. An attribute an object lacks is
// shown as "-".
std::optional<std::string> NumberedArrayTable(const std::string& name, const std::string& value,
                                              int indent);

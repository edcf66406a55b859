// How the web screen lays out one report: the attributes as the page shows
// them, in the object's order.
//   - "No data available!" is null: an absent value, never text among numbers;
//   - a numbered family (aset_arfcn1 .. aset_rscp6, lte_apn1_Id ..) is one
//     table, a row per field and a column per number, placed where its first
//     attribute was;
//   - a JSON array (the RLC bearers, dch_bler, apn1_pdp_qos) is a table, a
//     row per member (its element number taken off) and a column per element;
//   - dm_stats' `versions` (counts per log code and version) is a table, a
//     row per code and version ("B179 v4") and a column per count;
//   - the rest are single values.
//
//   {"values": {"scell_rscp": -90.7, "aset_rscp1": null, ...},
//    "items": [{"type": "value", "name": "scell_rscp"},
//              {"type": "table", "name": "aset", "attributes": ["aset_rscp1", ...],
//               "columns": ["1", "2"],
//               "rows": [{"name": "rscp", "cells": [-90, null]}]}, ...]}
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/fieldtest/screen_client.h"

namespace fieldtest {

// The text the daemon writes where it has no value.
inline constexpr const char* kNoData = "No data available!";

nlohmann::ordered_json ReportLayout(const std::vector<Attribute>& attributes);

// dm_stats' versions object ({"B179":{"v4":{"as_is":216,...}}}) as a table
// item named `name`: a row per code and version, a column per count in the
// order the object gives them; none when `versions` is not such an object.
std::optional<nlohmann::ordered_json> VersionsTable(const std::string& name,
                                                    const nlohmann::ordered_json& versions);

}  // namespace fieldtest

#include "tools/fieldtest/numbered_array_table.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <vector>

namespace {

constexpr const char* kTabledArrays[] = {"rlc_dl_srb_status", "rlc_dl_drb_status",
                                         "rlc_ul_srb_status", "rlc_ul_drb_status", "apn1_pdp_qos"};

// The attribute's name without the object's number at its end.
std::string WithoutNumber(const std::string& key) {
    size_t end = key.size();
    while (end > 0 && std::isdigit(static_cast<unsigned char>(key[end - 1]))) --end;
    return end == 0 ? key : key.substr(0, end);
}

std::string Text(const nlohmann::ordered_json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string Pad(const std::string& text, size_t width, bool right) {
    if (text.size() >= width) return text;
    std::string fill(width - text.size(), ' ');
    return right ? fill + text : text + fill;
}

}  // namespace

bool IsTabledArray(const std::string& name) {
    return std::find(std::begin(kTabledArrays), std::end(kTabledArrays), name) !=
           std::end(kTabledArrays);
}

std::optional<std::string> NumberedArrayTable(const std::string& name, const std::string& value,
                                              int indent) {
    auto array = nlohmann::ordered_json::parse(value, nullptr, false);
    if (array.is_discarded() || !array.is_array()) return std::nullopt;
    if (!std::all_of(array.begin(), array.end(), [](const auto& o) { return o.is_object(); }))
        return std::nullopt;

    // Rows in the order the attributes first appear; cells[row][column].
    std::vector<std::string> rows;
    std::vector<std::vector<std::string>> cells;
    for (size_t column = 0; column < array.size(); ++column) {
        for (const auto& item : array[column].items()) {
            const std::string row = WithoutNumber(item.key());
            auto at = std::find(rows.begin(), rows.end(), row);
            if (at == rows.end()) {
                rows.push_back(row);
                cells.emplace_back(array.size(), "-");
                at = rows.end() - 1;
            }
            cells[static_cast<size_t>(at - rows.begin())][column] = Text(item.value());
        }
    }

    const std::string margin(static_cast<size_t>(std::max(indent, 0)), ' ');
    std::string out = margin + name + " (" + std::to_string(array.size()) + ")\n";
    if (array.empty()) return out + margin + "  (none)\n";
    size_t label_width = std::string("attribute").size();
    for (const auto& row : rows) label_width = std::max(label_width, row.size());
    std::vector<size_t> widths(array.size());
    for (size_t column = 0; column < array.size(); ++column) {
        widths[column] = std::to_string(column + 1).size() + 1;
        for (const auto& line : cells)
            widths[column] = std::max(widths[column], line[column].size());
    }
    out += margin + "  " + Pad("attribute", label_width, false);
    for (size_t column = 0; column < array.size(); ++column)
        out += "  " + Pad("#" + std::to_string(column + 1), widths[column], true);
    out += "\n";
    for (size_t r = 0; r < rows.size(); ++r) {
        out += margin + "  " + Pad(rows[r], label_width, false);
        for (size_t column = 0; column < array.size(); ++column)
            out += "  " + Pad(cells[r][column], widths[column], true);
        out += "\n";
    }
    return out;
}

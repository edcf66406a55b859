#include "tools/fieldtest/report_layout.h"

#include <cctype>
#include <map>
#include <optional>
#include <string>

namespace fieldtest {

namespace {

using Json = nlohmann::ordered_json;

// A numbered attribute: family, number and field. The number is the first
// run of one or two digits that follows a letter and ends the name or a
// word of it:
// "aset_rscp3" is family "aset", number 3, field "rscp"; "apn1_ipv4_addr"
// is family "apn", number 1, field "ipv4_addr"; "squal1" is family "" and
// field "squal".
struct Numbered {
    std::string family;
    std::string number;
    std::string field;
};

constexpr size_t kMaxNumberDigits = 2;

bool IsDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

std::optional<Numbered> SplitNumbered(const std::string& name) {
    for (size_t start = 1; start < name.size(); ++start) {
        if (!IsDigit(name[start]) || !std::isalpha(static_cast<unsigned char>(name[start - 1])))
            continue;
        size_t end = start;
        while (end < name.size() && IsDigit(name[end])) ++end;
        // A timer such as t3212 is a name, not the 3212th of a family.
        if ((end < name.size() && name[end] != '_') || end - start > kMaxNumberDigits) {
            start = end;
            continue;
        }
        Numbered out{"", name.substr(start, end - start), ""};
        std::string stem = name.substr(0, start);
        if (end < name.size()) {
            out.family = stem;
            out.field = name.substr(end + 1);
        } else {
            size_t cut = stem.rfind('_');
            out.family = cut == std::string::npos ? "" : stem.substr(0, cut);
            out.field = cut == std::string::npos ? stem : stem.substr(cut + 1);
        }
        if (out.field.empty()) return std::nullopt;
        return out;
    }
    return std::nullopt;
}

Json Value(const Attribute& a) {
    if (a.value == kNoData) return nullptr;
    if (a.encoding == "json" || a.encoding == "n" || a.encoding == "b") {
        Json parsed = Json::parse(a.value, nullptr, false);
        if (!parsed.is_discarded()) return parsed;
    }
    return a.value;
}

Json CellValue(const Json& v) {
    if (v.is_string() && v.get<std::string>() == kNoData) return nullptr;
    if (v.is_structured()) return JsonText(v);
    return v;
}

// An element's member name with the element's own number taken off the end
// (the RLC arrays number their members: rb_cfg_idx1 in element 1).
std::string MemberName(const std::string& key, size_t element_number) {
    std::string number = std::to_string(element_number);
    if (key.size() > number.size() &&
        key.compare(key.size() - number.size(), number.size(), number) == 0) {
        std::string stem = key.substr(0, key.size() - number.size());
        if (!IsDigit(stem.back())) return stem;
    }
    return key;
}

// A JSON array as a table; none when it is not an array.
std::optional<Json> ArrayTable(const std::string& name, const Json& value) {
    if (!value.is_array()) return std::nullopt;
    Json columns = Json::array();
    std::vector<std::string> row_names;
    std::map<std::string, Json> rows;  // row name -> cells
    for (size_t i = 0; i < value.size(); ++i) {
        columns.push_back(std::to_string(i + 1));
        const Json& element = value[i];
        auto put = [&](const std::string& row, const Json& cell) {
            if (!rows.count(row)) {
                row_names.push_back(row);
                rows[row] = Json::array();
            }
            Json& cells = rows[row];
            while (cells.size() < i) cells.push_back(nullptr);
            cells.push_back(CellValue(cell));
        };
        if (element.is_object()) {
            for (const auto& [key, member] : element.items()) put(MemberName(key, i + 1), member);
        } else {
            put("value", element);
        }
    }
    Json table = {{"type", "table"},
                  {"name", name},
                  {"attributes", Json::array({name})},
                  {"columns", columns},
                  {"rows", Json::array()}};
    for (const std::string& row : row_names) {
        Json cells = rows[row];
        while (cells.size() < value.size()) cells.push_back(nullptr);
        table["rows"].push_back({{"name", row}, {"cells", cells}});
    }
    return table;
}

}  // namespace

std::optional<Json> VersionsTable(const std::string& name, const Json& versions) {
    if (!versions.is_object() || versions.empty()) return std::nullopt;
    Json columns = Json::array();
    Json rows = Json::array();
    for (const auto& [code, by_version] : versions.items()) {
        if (!by_version.is_object()) return std::nullopt;
        for (const auto& [version, counts] : by_version.items()) {
            if (!counts.is_object()) return std::nullopt;
            // Columns in the order of the first row; a count another row
            // lacks is null.
            if (columns.empty())
                for (const auto& [count, value] : counts.items()) columns.push_back(count);
            Json cells = Json::array();
            for (const Json& column : columns) {
                const std::string key = column.get<std::string>();
                cells.push_back(counts.contains(key) ? CellValue(counts[key]) : Json(nullptr));
            }
            rows.push_back({{"name", code + " " + version}, {"cells", cells}});
        }
    }
    return Json{{"type", "table"}, {"name", name}, {"columns", columns}, {"rows", rows}};
}

Json ReportLayout(const std::vector<Attribute>& attributes) {
    Json values = Json::object();
    for (const Attribute& a : attributes) values[a.name] = Value(a);

    // Families with at least two members become tables.
    std::map<std::string, int> family_size;
    for (const Attribute& a : attributes)
        if (auto n = SplitNumbered(a.name)) ++family_size[n->family];

    Json items = Json::array();
    std::map<std::string, size_t> family_item;  // family -> index in items
    for (const Attribute& a : attributes) {
        const Json& value = values[a.name];
        if (auto table = ArrayTable(a.name, value)) {
            items.push_back(*table);
            continue;
        }
        if (a.name == "versions") {
            if (auto table = VersionsTable(a.name, value)) {
                items.push_back(*table);
                continue;
            }
        }
        auto n = SplitNumbered(a.name);
        if (!n || family_size[n->family] < 2) {
            items.push_back({{"type", "value"}, {"name", a.name}});
            continue;
        }
        auto [it, fresh] = family_item.emplace(n->family, items.size());
        if (fresh)
            items.push_back({{"type", "table"},
                             {"name", n->family},
                             {"attributes", Json::array()},
                             {"columns", Json::array()},
                             {"rows", Json::array()}});
        Json& table = items[it->second];
        table["attributes"].push_back(a.name);
        Json& columns = table["columns"];
        size_t column = 0;
        while (column < columns.size() && columns[column] != n->number) ++column;
        if (column == columns.size()) {
            columns.push_back(n->number);
            for (Json& row : table["rows"]) row["cells"].push_back(nullptr);
        }
        Json* row = nullptr;
        for (Json& r : table["rows"])
            if (r["name"] == n->field) row = &r;
        if (row == nullptr) {
            table["rows"].push_back(
                {{"name", n->field}, {"cells", Json(std::vector<Json>(columns.size(), nullptr))}});
            row = &table["rows"].back();
        }
        (*row)["cells"][column] = CellValue(value);
    }
    // A family without a name ("squal1", "srxlev1") is named by its fields.
    for (Json& item : items) {
        if (item["type"] != "table" || item["name"] != "") continue;
        std::string name;
        for (const Json& row : item["rows"])
            name += (name.empty() ? "" : " / ") + row["name"].get<std::string>();
        item["name"] = name;
    }
    return {{"values", values}, {"items", items}};
}

}  // namespace fieldtest

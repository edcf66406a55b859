// Code→name tables: the texts codes stand for, as rows searched in order.
// A code the table does not hold has no name (nullptr), never a
// neighbour's, whatever the code's value.
//
//   constexpr rt::CodeName<uint8_t> kStates[] = {{0, "Idle"}, {3, "Connected"}};
//   const char* name = rt::NameOf(kStates, state);   // nullptr for 1, 2, 4...
#pragma once

#include <cstring>
#include <iterator>

namespace rt {

template <class Code>
struct CodeName {
    Code code;
    const char* name;
};

// The first row of `rows` (an array or span of CodeName) for `code`, or
// nullptr.
template <class Rows, class Code>
constexpr auto RowOf(const Rows& rows, Code code) {
    using Row = decltype(&*std::begin(rows));
    for (const auto& row : rows)
        if (row.code == code) return static_cast<Row>(&row);
    return static_cast<Row>(nullptr);
}

// The name of `code`, or nullptr when no row holds it.
template <class Rows, class Code>
constexpr const char* NameOf(const Rows& rows, Code code) {
    const auto* row = RowOf(rows, code);
    return row != nullptr ? row->name : nullptr;
}

// The first row named exactly `name`, or nullptr.
template <class Rows>
auto RowNamed(const Rows& rows, const char* name) {
    using Row = decltype(&*std::begin(rows));
    for (const auto& row : rows)
        if (std::strcmp(row.name, name) == 0) return static_cast<Row>(&row);
    return static_cast<Row>(nullptr);
}

}  // namespace rt

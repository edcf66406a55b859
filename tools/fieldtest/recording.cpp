#include "tools/fieldtest/recording.h"

#include <algorithm>
#include <cstdio>

namespace fieldtest {

void Recording::Add(long long unix_ms, const std::string& report,
                    const nlohmann::ordered_json& values) {
    std::lock_guard lock(mutex_);
    for (const auto& [name, value] : values.items()) {
        if (value.is_null() || value.is_structured()) continue;
        rows_.push_back(
            {unix_ms, report, name, value.is_string() ? value.get<std::string>() : value.dump()});
    }
    for (; rows_.size() > kMaxRows; ++first_number_) rows_.pop_front();
}

std::string Recording::Csv() {
    std::string out = kCsvHeader;
    Span span = Snapshot();
    for (std::string slice; !(slice = CsvSlice(&span, 1000)).empty();) out += slice;
    return out;
}

Recording::Span Recording::Snapshot() {
    std::lock_guard lock(mutex_);
    return {first_number_, first_number_ + rows_.size()};
}

std::string Recording::CsvSlice(Span* span, size_t max_rows) {
    std::lock_guard lock(mutex_);
    span->next = std::max(span->next, first_number_);
    std::string out;
    for (size_t taken = 0; taken < max_rows && span->next < span->end; ++taken, ++span->next) {
        const Row& row = rows_[span->next - first_number_];
        char time[32];
        std::snprintf(time, sizeof time, "%lld.%03lld", row.unix_ms / 1000, row.unix_ms % 1000);
        out += std::string(time) + "," + CsvField(row.report) + "," + CsvField(row.attribute) +
               "," + CsvField(row.value) + "\n";
    }
    return out;
}

size_t Recording::rows() {
    std::lock_guard lock(mutex_);
    return rows_.size();
}

std::string CsvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

}  // namespace fieldtest

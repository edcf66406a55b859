// The web screen's recording: every value it has taken from a report, as a
// drive-test log downloadable as CSV (time, report, attribute, value).
// Bounded: past kMaxRows the oldest samples go.
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

namespace fieldtest {

class Recording {
  public:
    static constexpr size_t kMaxRows = 500000;

    // The report's single values (null and structured ones are not samples)
    // taken at `unix_ms`.
    void Add(long long unix_ms, const std::string& report, const nlohmann::ordered_json& values);
    std::string Csv();
    size_t rows();

  private:
    struct Row {
        long long unix_ms;
        std::string report, attribute, value;
    };
    std::mutex mutex_;
    std::deque<Row> rows_;
};

// A CSV field, quoted when it holds a comma, a quote or a line break.
std::string CsvField(const std::string& text);

}  // namespace fieldtest

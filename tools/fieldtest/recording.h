// The web screen's recent values: the last kMaxRows values it has taken
// from reports, downloadable as CSV (time, report, attribute, value) with
// or without a recording on disk. The drive-test log is the disk
// recording (disk_recording.h); this stays small, past kMaxRows the oldest
// go, so a server that runs for hours holds no more than minutes' worth.
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

namespace fieldtest {

class Recording {
  public:
    static constexpr size_t kMaxRows = 50000;  // about 100 s of the demo's samples

    // The report's single values (null and structured ones are not samples)
    // taken at `unix_ms`.
    void Add(long long unix_ms, const std::string& report, const nlohmann::ordered_json& values);
    // The whole CSV at once (small recordings, tests).
    std::string Csv();
    size_t rows();

    // A download walks the rows there when it began, a slice at a time
    // under the lock, so no download holds a copy of the whole recording
    // while a slow client reads it. Rows are numbered as they are added.
    struct Span {
        unsigned long long next, end;
    };
    Span Snapshot();
    // The CSV lines of up to `max_rows` rows of `span` (a row dropped as the
    // oldest meanwhile is skipped), and `span` moved past them; "" at its end.
    std::string CsvSlice(Span* span, size_t max_rows);
    static constexpr const char* kCsvHeader = "time,report,attribute,value\n";

  private:
    struct Row {
        long long unix_ms;
        std::string report, attribute, value;
    };
    std::mutex mutex_;
    std::deque<Row> rows_;
    unsigned long long first_number_ = 0;  // the number of rows_.front()
};

// A CSV field, quoted when it holds a comma, a quote or a line break.
std::string CsvField(const std::string& text);

}  // namespace fieldtest

// A drive test's log on disk: every sample the screen takes, one CSV row
// each, written as it is taken and flushed at least every kFlushInterval,
// so that hours of recording cost no memory and a stop (Ctrl-C, SIGTERM)
// loses nothing that was acknowledged.
//
//   time,device,report,attribute,value,latitude,longitude,fix_time
//   1718000000.250,modem0,lteopinfo,lte_rsrp,-95.5,48.8566000,2.3522000,2024-06-10T06:13:20.000Z
//
// A new file is opened each time recording starts, and again once a file
// has grown past its size limit or has been written for an hour. Files are
// named fieldtest-YYYYMMDD-HHMMSS[-N].csv (UTC) and only such names are
// served back, so a download cannot reach any other file.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "tools/fieldtest/position.h"

namespace fieldtest {

class DiskRecording {
  public:
    static constexpr size_t kMaxFileBytes = 256u << 20;
    static constexpr auto kMaxFileAge = std::chrono::hours(1);
    static constexpr auto kFlushInterval = std::chrono::milliseconds(500);
    static constexpr const char* kCsvHeader =
        "time,device,report,attribute,value,latitude,longitude,fix_time\n";

    explicit DiskRecording(std::string dir, size_t max_file_bytes = kMaxFileBytes);
    ~DiskRecording();
    DiskRecording(const DiskRecording&) = delete;
    DiskRecording& operator=(const DiskRecording&) = delete;

    // Creates the folder if needed and opens the first file; false with the
    // reason when it cannot.
    bool Start(std::string* error);
    // A report's single values taken at `unix_ms` (null and structured
    // values are not samples), with the position then known.
    void Add(long long unix_ms, const std::string& device, const std::string& report,
             const nlohmann::ordered_json& values, const Position& position);
    // Flushes, syncs and closes the file; later samples are not recorded.
    void Close();

    // Samples written and flushed to the kernel: these survive the
    // program's end however it ends (short of the machine's).
    unsigned long long acknowledged();
    std::string current_file();         // its name in the folder, "" when closed
    std::vector<std::string> opened();  // the files this recording wrote
    std::string error();                // the last write error, "" when none
    const std::string& dir() const { return dir_; }

    struct FileInfo {
        std::string name;
        unsigned long long bytes;
    };
    // The recordings in the folder, oldest first.
    std::vector<FileInfo> Files();
    // A recording opened for reading by its name, or -1 when the name is not
    // a recording's or there is none such.
    int OpenFile(const std::string& name);
    static bool IsRecordingName(const std::string& name);

  private:
    bool OpenNextFile(std::string* error);  // with mutex_ held
    void FlushLocked();
    void FlushEvery();

    std::string dir_;
    size_t max_file_bytes_;
    std::mutex mutex_;
    std::condition_variable closing_;
    bool closed_ = false;
    std::FILE* file_ = nullptr;
    std::string file_name_, error_;
    std::vector<std::string> opened_;
    size_t file_bytes_ = 0;
    std::chrono::steady_clock::time_point file_opened_;
    unsigned long long written_ = 0, acknowledged_ = 0;
    std::thread flusher_;
};

}  // namespace fieldtest

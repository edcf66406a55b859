#include "tools/fieldtest/disk_recording.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <regex>

#include "tools/fieldtest/recording.h"

namespace fieldtest {

namespace {

// The stdio buffer of a file: rows reach the kernel when it fills or at the
// next flush, whichever comes first.
constexpr size_t kWriteBuffer = 64 * 1024;

std::string Errno(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

}  // namespace

DiskRecording::DiskRecording(std::string dir, size_t max_file_bytes)
    : dir_(std::move(dir)), max_file_bytes_(max_file_bytes) {}

DiskRecording::~DiskRecording() {
    Close();
}

bool DiskRecording::IsRecordingName(const std::string& name) {
    static const std::regex kName(R"(fieldtest-[0-9]{8}-[0-9]{6}(-[0-9]{1,6})?\.csv)");
    return std::regex_match(name, kName);
}

bool DiskRecording::Start(std::string* error) {
    if (::mkdir(dir_.c_str(), 0755) != 0 && errno != EEXIST) {
        *error = Errno("cannot create " + dir_);
        return false;
    }
    {
        std::lock_guard lock(mutex_);
        if (!OpenNextFile(error)) return false;
    }
    flusher_ = std::thread([this] { FlushEvery(); });
    return true;
}

bool DiskRecording::OpenNextFile(std::string* error) {
    std::time_t now = std::time(nullptr);
    std::tm utc{};
    ::gmtime_r(&now, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "fieldtest-%Y%m%d-%H%M%S", &utc);
    // Two files in one second (a restart, a small size limit) take a number.
    for (int n = 1; n < 1000; ++n) {
        std::string name = std::string(stamp) + (n == 1 ? "" : "-" + std::to_string(n)) + ".csv";
        std::string path = dir_ + "/" + name;
        int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0 && errno == EEXIST) continue;
        if (fd < 0) {
            *error = Errno("cannot create " + path);
            return false;
        }
        file_ = ::fdopen(fd, "w");
        std::setvbuf(file_, nullptr, _IOFBF, kWriteBuffer);
        file_name_ = name;
        opened_.push_back(name);
        file_opened_ = std::chrono::steady_clock::now();
        file_bytes_ = std::fwrite(kCsvHeader, 1, std::strlen(kCsvHeader), file_);
        return true;
    }
    *error = "too many recordings started in one second in " + dir_;
    return false;
}

void DiskRecording::Add(long long unix_ms, const std::string& device, const std::string& report,
                        const nlohmann::ordered_json& values, const Position& position) {
    char time[32], where[96] = ",,";
    std::snprintf(time, sizeof time, "%lld.%03lld", unix_ms / 1000, unix_ms % 1000);
    if (position.known)
        std::snprintf(where, sizeof where, "%.7f,%.7f,", position.latitude, position.longitude);
    std::string prefix = std::string(time) + "," + CsvField(device) + "," + CsvField(report) + ",";
    std::string suffix = "," + std::string(where) + CsvField(position.fix_time) + "\n";
    std::lock_guard lock(mutex_);
    if (file_ == nullptr) return;
    if (file_bytes_ >= max_file_bytes_ ||
        std::chrono::steady_clock::now() - file_opened_ >= kMaxFileAge) {
        FlushLocked();
        std::fclose(file_);
        file_ = nullptr;
        std::string error;
        if (!OpenNextFile(&error)) {
            error_ = error;
            std::fprintf(stderr, "fieldtest: recording stopped: %s\n", error.c_str());
            return;
        }
    }
    for (const auto& [name, value] : values.items()) {
        if (value.is_null() || value.is_structured()) continue;
        std::string row = prefix + CsvField(name) + "," +
                          CsvField(value.is_string() ? value.get<std::string>() : value.dump()) +
                          suffix;
        if (std::fwrite(row.data(), 1, row.size(), file_) != row.size()) {
            if (error_.empty())
                std::fprintf(stderr, "fieldtest: recording: %s\n",
                             (error_ = Errno("cannot write " + file_name_)).c_str());
            return;
        }
        file_bytes_ += row.size();
        ++written_;
    }
}

void DiskRecording::FlushLocked() {
    if (file_ == nullptr) return;
    if (std::fflush(file_) == 0) {
        acknowledged_ = written_;
    } else if (error_.empty()) {
        error_ = Errno("cannot write " + file_name_);
        std::fprintf(stderr, "fieldtest: recording: %s\n", error_.c_str());
    }
}

void DiskRecording::FlushEvery() {
    std::unique_lock lock(mutex_);
    while (!closing_.wait_for(lock, kFlushInterval, [&] { return closed_; })) FlushLocked();
}

void DiskRecording::Close() {
    {
        std::lock_guard lock(mutex_);
        if (closed_) return;
        closed_ = true;
        FlushLocked();
        if (file_ != nullptr) {
            ::fsync(::fileno(file_));
            std::fclose(file_);
            file_ = nullptr;
        }
        file_name_.clear();
    }
    closing_.notify_all();
    if (flusher_.joinable()) flusher_.join();
}

unsigned long long DiskRecording::acknowledged() {
    std::lock_guard lock(mutex_);
    return acknowledged_;
}

std::string DiskRecording::current_file() {
    std::lock_guard lock(mutex_);
    return file_name_;
}

std::vector<std::string> DiskRecording::opened() {
    std::lock_guard lock(mutex_);
    return opened_;
}

std::string DiskRecording::error() {
    std::lock_guard lock(mutex_);
    return error_;
}

std::vector<DiskRecording::FileInfo> DiskRecording::Files() {
    std::vector<FileInfo> files;
    DIR* dir = ::opendir(dir_.c_str());
    if (dir == nullptr) return files;
    while (const dirent* entry = ::readdir(dir)) {
        std::string name = entry->d_name;
        struct stat info {};
        if (!IsRecordingName(name) || ::fstatat(::dirfd(dir), name.c_str(), &info, 0) != 0 ||
            !S_ISREG(info.st_mode))
            continue;
        files.push_back({name, static_cast<unsigned long long>(info.st_size)});
    }
    ::closedir(dir);
    std::sort(files.begin(), files.end(),
              [](const FileInfo& a, const FileInfo& b) { return a.name < b.name; });
    return files;
}

int DiskRecording::OpenFile(const std::string& name) {
    // Only a recording's own name, with no slash, and never through a link.
    if (!IsRecordingName(name)) return -1;
    return ::open((dir_ + "/" + name).c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
}

}  // namespace fieldtest

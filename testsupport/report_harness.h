// Runs a report handler in the test's own process: a pipe stands in for the
// status object, so the exact text written (attribute order included) can
// be read back, and the reply goes to a real broker's server object.
// Packets go in through the DM callback, built field by field at snapshot
// offsets; the RAT measurement response is built the same way and served
// by modemsim's QMI side as a raw response.
//
//   rt::test::ReportHarness harness;
//   rt::test::LogPacket(0x4110, 87).U8(12, 2).U16(13, 10700).Deliver();
//   std::string report = harness.Run("radionwinfo");
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "diaglog/log_snapshot_store.h"
#include "platform/common/byte_layout.h"
#include "reports/report_table.h"
#include "service/pps_server.h"
#include "service/report_writer.h"
#include "service/tavora_context.h"
#include "service/tavora_strings.h"
#include "testsupport/child_process.h"
#include "testsupport/diag_capture_builder.h"

namespace rt::test {

// Little-endian fields at byte offsets of a zero-filled buffer of fixed
// size, written through rt::FieldWriter; a field that would not fit is
// dropped, so builders can state over-large layouts. Self is the builder,
// so that calls chain.
template <class Self>
class FieldsAt {
  public:
    explicit FieldsAt(size_t size) : bytes_(size, 0) {}
    Self& Set8(size_t at, unsigned value) { return Set<uint8_t>(at, value); }
    Self& Set16(size_t at, unsigned value) { return Set<uint16_t>(at, value); }
    Self& Set32(size_t at, uint32_t value) { return Set<uint32_t>(at, value); }
    const std::vector<uint8_t>& bytes() const { return bytes_; }

  protected:
    template <class T>
    Self& Set(size_t at, T value) {
        rt::FieldWriter(bytes_).Write(rt::Field<T>{at}, value);
        return static_cast<Self&>(*this);
    }
    std::vector<uint8_t> bytes_;
};

// A log packet of `size` bytes (header included) whose fields are set at
// snapshot offsets; the header's length and code are filled in.
class LogPacket : public FieldsAt<LogPacket> {
  public:
    LogPacket(uint16_t code, size_t size) : FieldsAt(size), code_(code) {
        Set16(0, static_cast<unsigned>(size)).Set16(2, code);
    }
    void Deliver() const {
        DM_recv_log_packet_cb(nullptr, code_, bytes_.data(), static_cast<uint32_t>(bytes_.size()));
    }

  private:
    uint16_t code_;
};

// The 1331-byte RAT measurement response as the daemon's buffer holds it:
// a successful result TLV, the measurement TLV's header, then the payload
// fields at buffer offsets. Hex() is modemsim's raw_response form.
class RatMeasResponse : public FieldsAt<RatMeasResponse> {
  public:
    static constexpr size_t kSize = 1331;
    RatMeasResponse() : FieldsAt(kSize) {
        Set8(0, 0x02).Set16(1, 4);           // result TLV: type, length 4, result 0, error 0
        Set8(7, 0x10).Set16(8, kSize - 10);  // the measurement TLV
    }
    // A measured cell at `at`: PSC, Ec/Io, RSCP.
    RatMeasResponse& Cell(size_t at, unsigned psc, int ecio, int rscp) {
        return Set16(at, psc)
            .Set16(at + 2, static_cast<uint16_t>(ecio))
            .Set16(at + 4, static_cast<uint16_t>(rscp));
    }
    // Bytes 10 to 12: measurements present, RAT type, payload holds data.
    RatMeasResponse& Valid(unsigned rat_type = 3) {
        return Set8(10, 1).Set8(11, rat_type).Set8(12, 1);
    }
    std::string Hex() const {
        std::string out;
        char pair[3];
        for (uint8_t byte : bytes_) {
            std::snprintf(pair, sizeof pair, "%02x", byte);
            out += pair;
        }
        return out;
    }
};

class ReportHarness {
  public:
    ReportHarness() {
        g_log_snapshot_store.Reset();
        if (::pipe2(status_, O_CLOEXEC | O_NONBLOCK) == 0) {
            context_.utra_fd = status_[1];
            context_.eutra_fd = status_[1];
            context_.geran_fd = status_[1];
            context_.cdma_fd = status_[1];
            context_.data_fd = status_[1];
        }
        server_ok_ = server_.pps_create_server_object(kControlServerPath) == 0;
    }
    ~ReportHarness() {
        ::close(status_[0]);
        ::close(status_[1]);
        g_log_snapshot_store.Reset();
    }
    bool ok() const { return server_ok_ && status_[0] >= 0; }

    // Runs the report's handler as client 5 with id 17 and returns what it
    // wrote.
    std::string Run(const char* msg) {
        ReportHandlerFor(msg)(&server_, &context_, 5, msg, "17", nullptr);
        return ReadAll(status_[0]);
    }

    // What's waiting on a non-blocking descriptor.
    static std::string ReadAll(int fd) {
        std::string out;
        char buffer[4096];
        ssize_t n;
        while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
            out.append(buffer, static_cast<size_t>(n));
        return out;
    }

  private:
    PpsBroker broker_;
    PPSServer server_;
    TavoraContext context_;
    int status_[2] = {-1, -1};
    bool server_ok_ = false;
};

// The text one part of a report writes: `fill` adds its attributes to a
// report written to a pipe.
//
//   std::string text = WrittenReport([](ReportWriter& r) { GetPDNInfo("internet", 3, r); });
template <class Fill>
std::string WrittenReport(Fill fill) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) return "pipe failed";
    {
        ReportWriter report(fds[1]);
        fill(report);
        report.Write();
    }
    std::string out = ReportHarness::ReadAll(fds[0]);
    ::close(fds[0]);
    ::close(fds[1]);
    return out;
}

// The attribute lines of a report whose name starts with `prefix`, in order.
inline std::vector<std::string> LinesStartingWith(const std::string& report,
                                                  const std::string& prefix) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < report.size()) {
        size_t end = report.find('\n', start);
        if (end == std::string::npos) end = report.size();
        std::string line = report.substr(start, end - start);
        if (line.rfind(prefix, 0) == 0) lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

}  // namespace rt::test

// A pseudo-terminal that plays a modem's device node: modemsim keeps the
// master, and `link` (a symlink) names the slave for clients to open, as
// they would open /dev/cdc-wdm0 or /dev/ttyUSB0. The line is raw (no echo,
// no translation), and modemsim holds the slave open itself so that the
// master never sees a hang-up between clients. The master is non-blocking:
// bytes nobody reads are dropped once the line's buffer is full, as on a
// serial port with nobody listening.
#pragma once

#include <string>

namespace modemsim {

// "pty:LINK" -> LINK; empty when `endpoint` names no pseudo-terminal.
std::string PtyLinkPath(const std::string& endpoint);

class PtyLink {
  public:
    PtyLink() = default;
    ~PtyLink() { Close(); }
    PtyLink(const PtyLink&) = delete;
    PtyLink& operator=(const PtyLink&) = delete;

    // Creates the pseudo-terminal and points `link` at it (replacing
    // whatever link was there); false with *error when it cannot.
    bool Open(const std::string& link, std::string* error);
    // Removes the link and closes both sides: clients see a hang-up, as
    // when a modem's device goes away.
    void Close();
    int master() const { return master_; }

  private:
    std::string link_;
    int master_ = -1;
    int slave_ = -1;
};

}  // namespace modemsim

// Keeps the published objects in step with the rendered state: writes only
// the attribute lines that changed (and "-name" for those gone), removes
// objects no longer described. Each object has one write-only handle, kept
// open, so devsim is never sent copies of what it writes.
#pragma once

#include <map>
#include <string>

#include "tools/devsim/objects.h"

namespace devsim {

class Publisher {
  public:
    Publisher() = default;
    ~Publisher();
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;

    // Brings every object to `objects`; each write is logged on standard
    // error. False when an object could not be opened or written.
    bool Publish(const RenderedObjects& objects);

  private:
    bool Write(const std::string& path, const std::string& text);

    std::map<std::string, int> fds_;
    RenderedObjects published_;
};

}  // namespace devsim

#pragma once

#include "Platform/Workspace.h"

#include <string>
#include <vector>

namespace tolvera::test {

// A desktop that only notes what it was asked to open. Main thread.
struct RecordingWorkspace final : platform::Workspace {
  bool openURL(const platform::URL& url) override { return note(std::string(url.buffer())); }
  bool openFolder(const std::string& path) override { return note(path); }
  bool openMicrophoneSettings() override { return note("microphone settings"); }
  bool note(std::string address) {
    opened.push_back(std::move(address));
    return true;
  }

  std::vector<std::string> opened; // in order
};

} // namespace tolvera::test

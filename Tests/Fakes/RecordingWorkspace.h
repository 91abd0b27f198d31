#pragma once

#include "Platform/Workspace.h"

#include <string>
#include <vector>

namespace tolvera::test {

// A desktop whose browser only notes what it was asked to open. Main thread.
class RecordingWorkspace final : public platform::Workspace {
 public:
  bool openURL(const platform::URL& url) override {
    if ((url.scheme() != "http" && url.scheme() != "https") || url.host().empty()) return false;
    opened.emplace_back(url.buffer());
    return hasBrowser;
  }
  bool openFolder(const std::string& path) override {
    opened.push_back(path);
    return true;
  }
  bool openMicrophoneSettings() override {
    opened.emplace_back("microphone settings");
    return true;
  }

  std::vector<std::string> opened; // the addresses, in order
  bool hasBrowser = true;
};

} // namespace tolvera::test

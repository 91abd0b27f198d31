#pragma once

#include "Platform/Workspace.h"

#include <functional>
#include <utility>

namespace tolvera::adapters {

// Opens addresses and folders in the desktop's default applications. Main thread.
class XdgWorkspace final : public platform::Workspace {
 public:
  // `locate` gives the address that is really opened for one that a program asks for.
  using Locate = std::function<platform::URL(const platform::URL&)>;
  explicit XdgWorkspace(Locate locate = [](const platform::URL& url) { return url; })
      : locate_(std::move(locate)) {}

  bool openURL(const platform::URL& url) override;
  bool openFolder(const std::string& path) override;
  // Opens the desktop's sound settings, or else a mixer.
  bool openMicrophoneSettings() override;
  // True if `openMicrophoneSettings` has something to open.
  [[nodiscard]] static bool hasMicrophoneSettings();

 private:
  Locate locate_;
};

} // namespace tolvera::adapters

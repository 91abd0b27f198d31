#pragma once

#include "Platform/Workspace.h"

namespace tolvera::adapters {

// The desktop by its own rules for default applications. Main thread.
class XdgWorkspace final : public platform::Workspace {
 public:
  bool openURL(const platform::URL& url) override;
  bool openFolder(const std::string& path) override;
  // The sound settings of the desktop that runs, or else a mixer.
  bool openMicrophoneSettings() override;
};

} // namespace tolvera::adapters

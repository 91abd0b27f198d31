#pragma once

#include "Platform/Workspace.h"

namespace tolvera::adapters {

// The desktop by its own rules for default applications. Main thread.
class XdgWorkspace final : public platform::Workspace {
 public:
  bool openURL(const platform::URL& url) override;
};

} // namespace tolvera::adapters

#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tolvera::platform {

// What an adapter finds out about the machine for a report to its user.
struct MachineFacts {
  std::optional<std::string> soundServer; // its name and version; absent if it does not answer
  std::optional<std::string> microphone;  // the default input's name; absent without one
  std::string desktop;                    // such as "X11"; empty without a display
  bool hasTrayHost = false;
  bool hasSettingsPortal = false; // tells a dark desktop from a light one
  std::filesystem::path configuration;
  bool configurationIsWritable = false;
};

} // namespace tolvera::platform

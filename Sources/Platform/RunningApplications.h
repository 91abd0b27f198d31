#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::platform {

enum class ActivationPolicy { regular = 0, accessory = 1, prohibited = 2 };

// An application that runs now.
struct RunningApplication {
  std::int32_t processIdentifier = 0;
  ActivationPolicy activationPolicy = ActivationPolicy::prohibited; // `regular` if the user sees it
  std::optional<std::string> bundleIdentifier;
  std::optional<std::string> localizedName;

  bool operator==(const RunningApplication&) const = default;
};

// The applications of the user's desktop, installed and running. Each call reads them anew. Main thread.
class RunningApplications {
 public:
  virtual ~RunningApplications() = default;

  [[nodiscard]] virtual std::vector<RunningApplication> runningApplications() const = 0;
  // The application whose own process has this id; absent for any other process.
  [[nodiscard]] virtual std::optional<RunningApplication> runningApplication(std::int32_t pid) const = 0;
  // The display name and the plain name of an installed application, by its bundle identifier.
  [[nodiscard]] virtual std::optional<std::string> localizedDisplayName(std::string_view bundleID) const = 0;
  [[nodiscard]] virtual std::optional<std::string> bundleName(std::string_view bundleID) const = 0;
};

} // namespace tolvera::platform

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
  ActivationPolicy activationPolicy =
      ActivationPolicy::prohibited; // regular: the user sees it as an application
  std::optional<std::string> bundleIdentifier;
  std::optional<std::string> localizedName;

  bool operator==(const RunningApplication&) const = default;
};

// The applications of the user's desktop, installed and running. Asked afresh on every call; main thread.
class RunningApplications {
 public:
  virtual ~RunningApplications() = default;

  [[nodiscard]] virtual std::vector<RunningApplication> runningApplications() const = 0;
  // The application that the process belongs to as its own; absent if it is not one's own process.
  [[nodiscard]] virtual std::optional<RunningApplication> runningApplication(std::int32_t pid) const = 0;
  // The display name and the plain name that an installed application gives itself, by its bundle identifier.
  [[nodiscard]] virtual std::optional<std::string> localizedDisplayName(std::string_view bundleID) const = 0;
  [[nodiscard]] virtual std::optional<std::string> bundleName(std::string_view bundleID) const = 0;
};

} // namespace tolvera::platform

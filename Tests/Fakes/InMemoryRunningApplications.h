#pragma once

#include "Platform/RunningApplications.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace tolvera::test {

// The applications that the test says are installed and run. One thread.
class InMemoryRunningApplications final : public platform::RunningApplications {
 public:
  using Application = platform::RunningApplication;
  std::vector<Application> running;
  std::map<std::string_view, std::string> displayNames; // by bundle identifier
  std::map<std::string_view, std::string> bundleNames;

  // An application that the user sees, with itself as its process.
  void addRegular(std::int32_t pid, const std::string& bundleID, std::optional<std::string> name) {
    running.push_back({pid, platform::ActivationPolicy::regular, bundleID, std::move(name)});
  }

  [[nodiscard]] std::vector<Application> runningApplications() const override { return running; }
  [[nodiscard]] std::optional<Application> runningApplication(std::int32_t pid) const override {
    const auto found = std::ranges::find(running, pid, &Application::processIdentifier);
    return found == running.end() ? std::nullopt : std::optional(*found);
  }
  [[nodiscard]] std::optional<std::string> localizedDisplayName(std::string_view bundleID) const override {
    return found(displayNames, bundleID);
  }
  [[nodiscard]] std::optional<std::string> bundleName(std::string_view bundleID) const override {
    return found(bundleNames, bundleID);
  }

 private:
  static std::optional<std::string> found(const auto& names, std::string_view bundleID) {
    const auto entry = names.find(bundleID);
    return entry == names.end() ? std::nullopt : std::optional(entry->second);
  }
};

} // namespace tolvera::test

#pragma once

#include "Platform/RunningApplications.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace tolvera::test {

// The applications that the test says are installed and run. One thread.
class InMemoryRunningApplications final : public platform::RunningApplications {
 public:
  std::vector<platform::RunningApplication> running;
  std::map<std::string, std::string, std::less<>> displayNames; // by bundle identifier
  std::map<std::string, std::string, std::less<>> bundleNames;

  // An application that the user sees as one, with itself as its process.
  void addRegular(std::int32_t pid, const std::string& bundleID, std::optional<std::string> name);

  [[nodiscard]] std::vector<platform::RunningApplication> runningApplications() const override {
    return running;
  }
  [[nodiscard]] std::optional<platform::RunningApplication>
  runningApplication(std::int32_t pid) const override;
  [[nodiscard]] std::optional<std::string> localizedDisplayName(std::string_view bundleID) const override;
  [[nodiscard]] std::optional<std::string> bundleName(std::string_view bundleID) const override;
};

} // namespace tolvera::test

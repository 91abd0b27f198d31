#pragma once

#include "Platform/Linux/Desktop/ProcessTable.h"
#include "Platform/Linux/Desktop/XdgDesktopEntries.h"
#include "Platform/RunningApplications.h"

#include <filesystem>

namespace tolvera::adapters {

// The applications of a desktop of entries and sessions: an application is an installed entry, its bundle
// identifier the entry's id without ".desktop", and it is regular if the menus of this desktop show it, in a
// terminal too. Processes of other users belong to no application. Any thread.
//
// Process numbers are those of this program's name space. A sandboxed program may report its number in
// another name space, which is a wrong one here.
class XdgRunningApplications final : public platform::RunningApplications {
 public:
  XdgRunningApplications() = default;
  // For tests: the directories of entries, as XdgDesktopIndex takes them, and the process file system's root.
  XdgRunningApplications(std::vector<std::filesystem::path> entries, std::filesystem::path processes);

  // One for each application: its oldest process that is no helper. The oldest comes first.
  [[nodiscard]] std::vector<platform::RunningApplication> runningApplications() const override;
  // Absent for helpers and for processes without an application.
  [[nodiscard]] std::optional<platform::RunningApplication>
  runningApplication(std::int32_t pid) const override;
  [[nodiscard]] std::optional<std::string> localizedDisplayName(std::string_view bundleID) const override;
  [[nodiscard]] std::optional<std::string> bundleName(std::string_view bundleID) const override;

  // The bundle identifier that the sound server reports for a process: its application's, with ".helper"
  // after it for a helper and for a program without an entry that the application started, such as a program
  // that a shell in a terminal runs. Absent if there is no application.
  [[nodiscard]] std::optional<std::string> bundleIdentifier(std::int32_t pid) const;

 private:
  ProcessTable processes_;
  XdgDesktopEntries entries_;
};

} // namespace tolvera::adapters

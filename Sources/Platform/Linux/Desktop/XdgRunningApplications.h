#pragma once

#include "Platform/Linux/Desktop/ProcessTable.h"
#include "Platform/Linux/Desktop/XdgDesktopEntries.h"
#include "Platform/RunningApplications.h"

#include <filesystem>

namespace tolvera::adapters {

// The applications of a desktop of entries and sessions: an application is an installed entry, its bundle
// identifier the entry's id without ".desktop", and it is regular if the menus of this desktop show it, in a
// terminal too. Processes of other users are nobody's. Every operation may be called on any thread.
//
// Process numbers are those of this program's own name space; the number that a sandboxed program gives for
// itself is another's or nobody's here.
class XdgRunningApplications final : public platform::RunningApplications {
 public:
  XdgRunningApplications() = default;
  // With the directories of entries, the most important first, and the root of the process file system.
  XdgRunningApplications(std::vector<std::filesystem::path> entries, std::filesystem::path processes);

  // One for each application: the oldest of those processes that are no helpers. Oldest first.
  [[nodiscard]] std::vector<platform::RunningApplication> runningApplications() const override;
  // Absent for helpers as for strangers.
  [[nodiscard]] std::optional<platform::RunningApplication>
  runningApplication(std::int32_t pid) const override;
  [[nodiscard]] std::optional<std::string> localizedDisplayName(std::string_view bundleID) const override;
  [[nodiscard]] std::optional<std::string> bundleName(std::string_view bundleID) const override;

  // What the sound server is to report of a process: its application's identifier, for a helper and whatever
  // else an application started with ".helper" after it. A program without an entry that a terminal's shell
  // or a script starts so counts for the terminal or for the script's application. Absent without any.
  [[nodiscard]] std::optional<std::string> bundleIdentifier(std::int32_t pid) const;

 private:
  ProcessTable processes_;
  XdgDesktopEntries entries_;
};

} // namespace tolvera::adapters

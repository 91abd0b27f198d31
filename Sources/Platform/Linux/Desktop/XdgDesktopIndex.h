#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace tolvera::adapters {

// An installed application.
struct XdgDesktopEntry {
  std::string id;                  // its file's id, without ".desktop"
  std::optional<std::string> name; // in the user's language
  std::optional<std::string> plainName;
  bool isVisible = false;             // true if the menus of this desktop show it
  std::string program;                // the resolved file that it starts; empty if unknown
  std::vector<std::string> arguments; // those of every start
};

// The applications that were installed at one moment. Immutable; any thread.
class XdgDesktopIndex {
 public:
  // The directories of entries; an entry hides those with its id in later directories.
  explicit XdgDesktopIndex(std::span<const std::filesystem::path> directories);
  XdgDesktopIndex(const XdgDesktopIndex&) = delete;
  XdgDesktopIndex& operator=(const XdgDesktopIndex&) = delete;

  [[nodiscard]] const XdgDesktopEntry* entry(std::string_view id) const;
  // The entry of a desktop file, found by its place or else by its name.
  [[nodiscard]] const XdgDesktopEntry* entryOfFile(const std::filesystem::path& file) const;
  // The entries that may have started a process with that resolved executable or script, the best match
  // first.
  [[nodiscard]] std::vector<const XdgDesktopEntry*> entriesOf(const std::string& program,
                                                              std::span<const std::string> arguments) const;
  // Whether `entriesOf` can give entries for the executable or for a script that it runs.
  [[nodiscard]] bool needsArguments(const std::string& executable) const;

 private:
  using Entries = std::unordered_map<std::string, std::vector<const XdgDesktopEntry*>>;

  void addDirectory(const std::filesystem::path& directory);
  void addFile(const std::filesystem::path& file, std::string id);
  void addProgram(const XdgDesktopEntry& entry, const std::string& name);

  std::vector<std::filesystem::path> directories_;
  std::map<std::string, std::optional<XdgDesktopEntry>, std::less<>>
      entries_; // absent if the first file with that id is hidden or broken
  Entries byProgram_;
  // Entries whose program is a script. It may start a program with the script's name or from its directory.
  Entries byName_;
  Entries byDirectory_;
  std::unordered_set<std::string> interpreters_;
};

} // namespace tolvera::adapters

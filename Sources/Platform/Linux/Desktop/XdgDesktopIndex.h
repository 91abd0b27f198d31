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

// An application that is installed.
struct XdgDesktopEntry {
  std::string id;                  // of its file, without ".desktop"
  std::optional<std::string> name; // in the user's language
  std::optional<std::string> plainName;
  bool isVisible = false;             // menus of this desktop show it
  std::string program;                // the resolved file that it runs; empty if unknown
  std::vector<std::string> arguments; // that it runs it with
};

// The applications that were installed at one moment. Does not change. Any thread.
class XdgDesktopIndex {
 public:
  // Directories of entries, the most important first.
  explicit XdgDesktopIndex(std::span<const std::filesystem::path> directories);
  XdgDesktopIndex(const XdgDesktopIndex&) = delete;
  XdgDesktopIndex& operator=(const XdgDesktopIndex&) = delete;

  [[nodiscard]] const XdgDesktopEntry* entry(std::string_view id) const;
  // The entry of a file of entries, by its place or else by its name.
  [[nodiscard]] const XdgDesktopEntry* entryOfFile(const std::filesystem::path& file) const;
  // Those that a process with that resolved executable or script may stand for, the best match first.
  [[nodiscard]] std::vector<const XdgDesktopEntry*> entriesOf(const std::string& program,
                                                              std::span<const std::string> arguments) const;
  // Whether the arguments of a process with that executable matter.
  [[nodiscard]] bool knows(const std::string& executable) const;

 private:
  using Entries = std::unordered_map<std::string, std::vector<const XdgDesktopEntry*>>;

  void addDirectory(const std::filesystem::path& directory);
  void addFile(const std::filesystem::path& file, std::string id);
  void addProgram(const XdgDesktopEntry& entry, const std::string& name);

  std::vector<std::filesystem::path> directories_;
  std::map<std::string, std::optional<XdgDesktopEntry>, std::less<>>
      entries_; // absent: masked by a file above
  Entries byProgram_;
  // Of entries that start a script, which in turn starts something of that name or from its own directory.
  Entries byName_;
  Entries byDirectory_;
  std::unordered_set<std::string> interpreters_;
};

} // namespace tolvera::adapters

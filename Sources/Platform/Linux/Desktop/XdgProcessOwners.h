#pragma once

#include "Platform/Linux/Desktop/ProcessTable.h"
#include "Platform/Linux/Desktop/XdgDesktopIndex.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tolvera::adapters {

// Finds the application of each process at one moment. Reads of a process what it needs, once, so an object
// serves one question. One thread.
//
// A process is identified by the first of these: the entry from which the desktop started it, the application
// of its sandbox, its program, its session unit. Children inherit units, so a program that was started within
// another application's unit still is an application of its own.
class XdgProcessOwners {
 public:
  // `processes` outlives this object.
  XdgProcessOwners(const ProcessTable& processes, std::shared_ptr<const XdgDesktopIndex> index)
      : processes_(processes), index_(std::move(index)) {}

  [[nodiscard]] std::optional<ProcessTable::Status> status(std::int32_t pid) { return node(pid).status; }
  // The application that the process itself shows; null if there is none.
  [[nodiscard]] const XdgDesktopEntry* application(std::int32_t pid);
  // The same, but null if the process is a helper of another process of that application.
  [[nodiscard]] const XdgDesktopEntry* mainApplication(std::int32_t pid);
  // The nearest ancestor's application that menus show; null if there is none.
  [[nodiscard]] const XdgDesktopEntry* visibleAncestor(std::int32_t pid);

 private:
  using Entries = std::vector<const XdgDesktopEntry*>;
  struct Unit {
    const XdgDesktopEntry* entry = nullptr;
    bool isInner = false; // true if the innermost unit is the application's, not only a slice around it
  };
  struct Node {
    std::optional<ProcessTable::Status> status;
    std::optional<const XdgDesktopEntry*> application; // null if it has none, absent if not yet known
    std::optional<Unit> unit;
  };

  Node& node(std::int32_t pid);
  [[nodiscard]] std::optional<std::int32_t> parent(std::int32_t pid);
  [[nodiscard]] const XdgDesktopEntry* nearestAncestor(std::int32_t pid, bool visibleOnly);
  [[nodiscard]] const XdgDesktopEntry* identify(std::int32_t pid);
  [[nodiscard]] Unit byUnit(std::int32_t pid);
  [[nodiscard]] const XdgDesktopEntry* byProgramAndUnit(std::int32_t pid, const Entries& programs);
  [[nodiscard]] Entries byProgram(std::int32_t pid) const;
  [[nodiscard]] std::optional<std::string> script(std::int32_t pid, const std::string& executable,
                                                  const std::vector<std::string>& arguments) const;

  const ProcessTable& processes_;
  std::shared_ptr<const XdgDesktopIndex> index_;
  std::unordered_map<std::int32_t, Node> nodes_; // references to its values stay valid
};

} // namespace tolvera::adapters

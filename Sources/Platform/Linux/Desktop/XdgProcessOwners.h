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

// Which application each process belongs to, at one moment: reads of a process what it must, once. Made for
// one question and dropped. One thread.
//
// A process says itself which application it is, in this order: the entry that its desktop started it from,
// the application of its sandbox, its program, its session unit. Units pass on to children, so a program that
// is started within another application's unit is its own application nevertheless.
class XdgProcessOwners {
 public:
  // `processes` outlives this object.
  XdgProcessOwners(const ProcessTable& processes, std::shared_ptr<const XdgDesktopIndex> index)
      : processes_(processes), index_(std::move(index)) {}

  [[nodiscard]] std::optional<ProcessTable::Status> status(std::int32_t pid) { return node(pid).status; }
  // What the process is by its own signs; null if it has none.
  [[nodiscard]] const XdgDesktopEntry* own(std::int32_t pid);
  // The same, if the process is not the helper of another one of the application.
  [[nodiscard]] const XdgDesktopEntry* ownAsMain(std::int32_t pid);
  // The nearest application in the process's ancestry that the user sees as one; null if there is none.
  [[nodiscard]] const XdgDesktopEntry* visibleAncestor(std::int32_t pid);

 private:
  using Entries = std::vector<const XdgDesktopEntry*>;
  struct Unit {
    const XdgDesktopEntry* entry = nullptr;
    bool isInner = false; // the unit itself is the application's, not only a slice around it
  };
  struct Node {
    std::optional<ProcessTable::Status> status;
    std::optional<const XdgDesktopEntry*> own; // null if it has none, absent if not yet known
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

#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::adapters {

// The processes as the kernel's process file system shows them. Each call reads afresh: a process may change
// its program or end at any time, and then the answer is absent or empty. Any thread.
class ProcessTable {
 public:
  struct Status {
    std::int32_t pid = 0;
    std::int32_t parent = 0;
    std::uint64_t startTime = 0; // in clock ticks since the machine started
  };

  explicit ProcessTable(std::filesystem::path root = "/proc");

  // Numbers of the processes of all users, in no order.
  [[nodiscard]] std::vector<std::int32_t> processes() const;
  // Absent for processes of other users and for threads of the kernel.
  [[nodiscard]] std::optional<Status> status(std::int32_t pid) const;
  // The program's file with links resolved, as the process sees it. A file that was replaced since keeps its
  // name.
  [[nodiscard]] std::optional<std::string> executable(std::int32_t pid) const;
  [[nodiscard]] std::vector<std::string> arguments(std::int32_t pid) const; // the first is the program's name
  // The environment when the program started, as NAME=VALUE; empty if it is not readable.
  [[nodiscard]] std::vector<std::string> environment(std::int32_t pid) const;
  [[nodiscard]] std::optional<std::string> workingDirectory(std::int32_t pid) const;
  // The path of slices and units that the session put the process into: "/user.slice/.../x.scope".
  [[nodiscard]] std::optional<std::string> controlGroup(std::int32_t pid) const;
  // The text of a file that the process sees at `path`, which is absolute; absent if there is none.
  [[nodiscard]] std::optional<std::string> fileInside(std::int32_t pid, std::string_view path) const;

 private:
  [[nodiscard]] std::string path(std::int32_t pid, std::string_view name) const;
  [[nodiscard]] bool belongsToUser(std::int32_t pid) const;

  std::string root_;
};

} // namespace tolvera::adapters

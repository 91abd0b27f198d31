#include "Platform/Linux/Desktop/ProcessTable.h"

#include "Platform/Linux/Desktop/FileDescriptor.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>

namespace tolvera::adapters {

namespace {

constexpr std::size_t largestFile = 4 << 20; // arguments and environment together are smaller
constexpr std::int32_t kernelThreads = 2;    // the parent of all threads of the kernel

std::optional<std::string> contentOf(const std::string& path) {
  // In another user's sandbox the file may be a pipe or a terminal.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  return file ? file.readAll(largestFile) : std::nullopt;
}

std::optional<std::string> targetOf(const std::string& link) {
  std::array<char, 4097> buffer;
  const ssize_t count = ::readlink(link.c_str(), buffer.data(), buffer.size());
  if (count <= 0 || static_cast<std::size_t>(count) == buffer.size()) return std::nullopt;
  return std::string(buffer.data(), static_cast<std::size_t>(count));
}

std::vector<std::string> pieces(std::string_view text, char separator) {
  std::vector<std::string> result;
  while (!text.empty()) {
    const auto end = std::min(text.find(separator), text.size());
    result.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return result;
}

template<typename Number>
std::optional<Number> number(std::string_view text) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

} // namespace

ProcessTable::ProcessTable(std::filesystem::path root) : root_(std::move(root)) {}

std::string ProcessTable::path(std::int32_t pid, std::string_view name) const {
  std::string path = root_;
  path.append("/").append(std::to_string(pid)).append("/").append(name);
  return path;
}

std::vector<std::int32_t> ProcessTable::processes() const {
  std::vector<std::int32_t> pids;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(root_.c_str()), ::closedir);
  if (!directory) return pids;
  while (const dirent* entry = ::readdir(directory.get()))
    if (const auto pid = number<std::int32_t>(static_cast<const char*>(entry->d_name)); pid && *pid > 0)
      pids.push_back(*pid);
  return pids;
}

bool ProcessTable::belongsToUser(std::int32_t pid) const {
  struct stat information{};
  if (::stat(path(pid, "").c_str(), &information) != 0) return false;
  if (information.st_uid == ::geteuid()) return true;
  if (information.st_uid != 0) return false;
  // If a process forbids inspection, as browsers' sandboxes do, its files belong to root.
  const auto status = contentOf(path(pid, "status"));
  if (!status) return false;
  constexpr std::string_view key = "\nUid:\t";
  const auto start = status->find(key);
  if (start == std::string::npos) return false;
  const std::string_view rest = std::string_view(*status).substr(start + key.size());
  return number<uid_t>(rest.substr(0, rest.find('\t'))) == ::geteuid();
}

std::optional<ProcessTable::Status> ProcessTable::status(std::int32_t pid) const {
  const auto content = contentOf(path(pid, "stat"));
  if (!content) return std::nullopt;
  // The second field is the program's name in parentheses, which may hold blanks and parentheses itself.
  const auto nameEnd = content->rfind(") ");
  if (nameEnd == std::string::npos) return std::nullopt;
  const auto fields = pieces(std::string_view(*content).substr(nameEnd + 2), ' ');
  constexpr std::size_t parentField = 1;
  constexpr std::size_t startTimeField = 19;
  if (fields.size() <= startTimeField) return std::nullopt;
  const auto parent = number<std::int32_t>(fields[parentField]);
  const auto startTime = number<std::uint64_t>(fields[startTimeField]);
  if (!parent || !startTime || *parent == kernelThreads || !belongsToUser(pid)) return std::nullopt;
  return Status{.pid = pid, .parent = *parent, .startTime = *startTime};
}

std::optional<std::string> ProcessTable::executable(std::int32_t pid) const {
  auto target = targetOf(path(pid, "exe"));
  constexpr std::string_view replaced = " (deleted)";
  if (target && target->ends_with(replaced) && ::access(target->c_str(), F_OK) != 0)
    target->resize(target->size() - replaced.size());
  return target;
}

std::vector<std::string> ProcessTable::arguments(std::int32_t pid) const {
  return pieces(contentOf(path(pid, "cmdline")).value_or(""), '\0');
}

std::vector<std::string> ProcessTable::environment(std::int32_t pid) const {
  return pieces(contentOf(path(pid, "environ")).value_or(""), '\0');
}

std::optional<std::string> ProcessTable::workingDirectory(std::int32_t pid) const {
  return targetOf(path(pid, "cwd"));
}

std::optional<std::string> ProcessTable::controlGroup(std::int32_t pid) const {
  const auto content = contentOf(path(pid, "cgroup"));
  if (!content) return std::nullopt;
  // The line "0::" is the unified hierarchy; older systems have the session's hierarchy besides.
  std::optional<std::string> found;
  for (const std::string& line : pieces(*content, '\n')) {
    const bool isSession = line.find(":name=systemd:") != std::string::npos;
    if (!isSession && !line.starts_with("0::")) continue;
    found = line.substr(line.find(':', line.find(':') + 1) + 1);
    if (isSession) break;
  }
  return found;
}

std::optional<std::string> ProcessTable::fileInside(std::int32_t pid, std::string_view inside) const {
  return contentOf(path(pid, "root").append(inside));
}

} // namespace tolvera::adapters

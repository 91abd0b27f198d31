#pragma once

#include "Harness/TemporaryDirectory.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace tolvera::test {

// A machine's installed applications in a directory of the test.
class InstalledApplications {
 public:
  InstalledApplications() {
    std::filesystem::create_directories(entries());
    std::filesystem::create_directories(root_ / "bin");
    std::filesystem::create_directories(root_ / "lib");
  }

  [[nodiscard]] std::filesystem::path root() const { return std::filesystem::canonical(root_.path()); }
  [[nodiscard]] std::filesystem::path dataDirectory() const { return root_ / "share"; }
  [[nodiscard]] std::filesystem::path entries() const { return root_ / "share/applications"; }

  // An entry with the name NAME of `id`, and with further lines.
  void addEntry(const std::string& id, const std::string& exec, const std::string& lines = "") const {
    const auto file = entries() / (id + ".desktop");
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << "[Desktop Entry]\nType=Application\nName=Name of " << id << "\nExec=" << exec
                        << "\n"
                        << lines;
  }
  // A copy of a program under another name, so that its file is its own.
  std::string addProgram(const std::string& place) const {
    std::filesystem::copy_file("/bin/sleep", root() / place);
    return root() / place;
  }
  std::string addScript(const std::string& place, const std::string& text) const {
    std::filesystem::create_directories((root() / place).parent_path());
    std::ofstream(root() / place) << text;
    std::filesystem::permissions(root() / place, std::filesystem::perms::owner_all);
    return root() / place;
  }

 private:
  TemporaryDirectory root_;
};

// A process file system that the test made up.
class MadeUpProcesses {
 public:
  struct Process {
    std::int32_t pid = 0;
    std::int32_t parent = 1;
    std::string executable = {};
    std::vector<std::string> arguments = {};
    std::vector<std::string> environment = {};
    std::string controlGroup = "/";
    std::string sandbox = {};    // the application whose sandbox it is in
    std::uint64_t startTime = 0; // its number if 0
  };

  void add(const Process& process) const {
    const auto directory = root_.path() / std::to_string(process.pid);
    std::filesystem::create_directories(directory / "root");
    const auto startTime =
        process.startTime != 0 ? process.startTime : static_cast<std::uint64_t>(process.pid);
    // The name is one that is meant to confuse.
    std::ofstream(directory / "stat") << process.pid << " (a) S 9 (b) S " << process.parent
                                      << " 0 0 0 0 0 0 0 0 0 0 0 0 0 20 0 1 0 " << startTime << " 0 0\n";
    std::ofstream(directory / "cgroup") << "12:cpu:/x\n0::" << process.controlGroup << "\n";
    if (!process.executable.empty()) std::filesystem::create_symlink(process.executable, directory / "exe");
    write(directory / "cmdline", process.arguments);
    write(directory / "environ", process.environment);
    if (!process.sandbox.empty())
      std::ofstream(directory / "root/.flatpak-info") << "[Application]\nname=" << process.sandbox << "\n";
  }
  void remove(std::int32_t pid) const { std::filesystem::remove_all(root_.path() / std::to_string(pid)); }
  [[nodiscard]] std::filesystem::path root() const { return root_.path(); }

 private:
  static void write(const std::filesystem::path& file, const std::vector<std::string>& texts) {
    std::ofstream stream(file);
    for (const std::string& text : texts) stream << text << '\0';
  }

  TemporaryDirectory root_;
};

} // namespace tolvera::test

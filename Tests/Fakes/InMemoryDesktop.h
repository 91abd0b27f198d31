#pragma once

#include "Async/Gate.h"
#include "Platform/CaptureDevice.h"
#include "Platform/FileManager.h"
#include "Platform/RunningApplications.h"
#include "Platform/UserDefaults.h"
#include "Platform/Workspace.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

// What a desktop offers, as the test sets it. One thread.
namespace tolvera::test {

template<typename Map>
std::optional<typename Map::mapped_type> valueIn(const Map& map, const typename Map::key_type& key) {
  const auto found = map.find(key);
  return found == map.end() ? std::nullopt : std::optional(found->second);
}

// A file can be written only into a directory that was made.
class InMemoryFileManager final : public platform::FileManager {
 public:
  [[nodiscard]] std::filesystem::path applicationSupportDirectory() const override { return "/support"; }
  bool createPrivateDirectory(const std::filesystem::path& directory) override {
    files[directory]; // there, as an empty file
    return true;
  }
  [[nodiscard]] std::optional<std::string> contents(const std::filesystem::path& file) const override {
    return valueIn(files, file);
  }
  bool writePrivateFile(const std::filesystem::path& file, std::string_view content) override {
    const bool possible = files.contains(file.parent_path());
    if (possible) files[file] = content;
    return possible;
  }
  void remove(const std::filesystem::path& file) override { files.erase(file); }

  std::map<std::filesystem::path, std::string> files;
};

// The applications that are installed and run.
class InMemoryRunningApplications final : public platform::RunningApplications {
 public:
  using Application = platform::RunningApplication;
  std::vector<Application> running;
  std::map<std::string, std::string> displayNames; // by bundle identifier
  std::map<std::string, std::string> bundleNames;

  // An application that the user sees, with itself as its process.
  void addRegular(std::int32_t pid, const std::string& bundleID, std::optional<std::string> name) {
    running.push_back({pid, platform::ActivationPolicy::regular, bundleID, std::move(name)});
  }

  [[nodiscard]] std::vector<Application> runningApplications() const override { return running; }
  [[nodiscard]] std::optional<Application> runningApplication(std::int32_t pid) const override {
    const auto found = std::ranges::find(running, pid, &Application::processIdentifier);
    return found == running.end() ? std::nullopt : std::optional(*found);
  }
  [[nodiscard]] std::optional<std::string> localizedDisplayName(std::string_view bundleID) const override {
    return valueIn(displayNames, std::string(bundleID));
  }
  [[nodiscard]] std::optional<std::string> bundleName(std::string_view bundleID) const override {
    return valueIn(bundleNames, std::string(bundleID));
  }
};

// Preferences that last as long as the object.
class InMemoryUserDefaults final : public platform::UserDefaults {
 public:
  using Values = std::map<std::string, Value>;

  explicit InMemoryUserDefaults(Values initial = {}) : values(std::move(initial)) {}

  [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const override {
    return valueIn(values, std::string(key));
  }
  void setObject(std::string_view key, Value value) override {
    values.insert_or_assign(std::string(key), std::move(value));
  }
  void removeObjectForKey(std::string_view key) override { values.erase(std::string(key)); }

  Values values;
};

// Only notes what it was asked to open.
struct RecordingWorkspace final : platform::Workspace {
  bool openURL(const platform::URL& url) override { return note(std::string(url.buffer())); }
  bool openFolder(const std::string& path) override { return note(path); }
  bool openMicrophoneSettings() override { return note("microphone settings"); }
  bool note(const std::string& address) {
    opened.push_back(address);
    return true;
  }

  std::vector<std::string> opened; // in order
};

// The microphone permission, and the user's answer to the question.
struct ScriptedCaptureDevice final : platform::CaptureDevice {
  [[nodiscard]] platform::AuthorizationStatus audioAuthorizationStatus() const override { return status; }
  Task<bool> requestAudioAccess() override {
    ++requests;
    if (thinks) co_await answered.pass();
    status = userAgrees ? platform::AuthorizationStatus::authorized : platform::AuthorizationStatus::denied;
    co_return userAgrees;
  }

  platform::AuthorizationStatus status = platform::AuthorizationStatus::authorized;
  bool userAgrees = true;
  bool thinks = false; // before the answer, until `answered` opens
  Gate answered;
  int requests = 0; // how often the user was asked
};

} // namespace tolvera::test

#pragma once

#include "Platform/UserDefaults.h"

#include <chrono>
#include <filesystem>
#include <memory>

namespace tolvera::adapters {

// The preferences in one JSON file that only its owner can read: an object with a key for each preference.
// Answers from memory. A thread of its own gathers changes and replaces the file as a whole. Main thread.
//
// Values of other kinds are kept in the file and count as missing. A number that is not finite is not stored,
// as JSON cannot express it. A file that holds no JSON object is moved aside and the preferences begin empty;
// if it cannot be moved, nothing is written. The file is read once: the next change overwrites an edit that
// is made while the program runs.
class JsonUserDefaults final : public platform::UserDefaults {
 public:
  // How soon and how often changes reach the file.
  struct Pace {
    std::chrono::milliseconds gather{15};   // from a first change to its writing, so that others join it
    std::chrono::milliseconds interval{85}; // from one writing to the next, at least
  };

  // tolvera/preferences.json in the user's configuration directory.
  static std::filesystem::path defaultFile();
  JsonUserDefaults() : JsonUserDefaults(defaultFile()) {}
  explicit JsonUserDefaults(std::filesystem::path file) : JsonUserDefaults(std::move(file), Pace{}) {}
  JsonUserDefaults(std::filesystem::path file, Pace pace);
  // Writes what is pending.
  ~JsonUserDefaults() override;

  [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const override;
  void setObject(std::string_view key, Value value) override;
  void removeObjectForKey(std::string_view key) override;

  // Waits until all changes are in the file. False if it cannot be written; the store then tries again about
  // once a second.
  bool flush();

 private:
  class Document;
  class Writer;

  std::unique_ptr<Document> document_;
  std::unique_ptr<Writer> writer_;
};

} // namespace tolvera::adapters

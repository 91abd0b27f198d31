#pragma once

#include "Platform/UserDefaults.h"

#include <chrono>
#include <filesystem>
#include <memory>

namespace tolvera::adapters {

// The preferences in one JSON file for its owner alone: an object with a key for each preference. Answers
// from memory; a thread of its own brings the changes to the file, many at a time, each time as a whole
// new file. Main thread.
//
// Keys with values of other kinds are kept as they are, and count as missing. So does a number that is not
// finite, which JSON cannot express. A file that is no JSON object is moved aside under a name of its own
// and the preferences begin empty; if even that fails, nothing is written at all. The file is read once:
// whoever edits it while the program runs loses to the next change.
class JsonUserDefaults final : public platform::UserDefaults {
 public:
  // How fast changes follow one another to the file.
  struct Pace {
    std::chrono::milliseconds gather{15};   // from a first change to its writing, for others to join it
    std::chrono::milliseconds interval{85}; // at least, from one writing to the next
  };

  // tolvera/preferences.json in the user's configuration directory.
  JsonUserDefaults();
  explicit JsonUserDefaults(std::filesystem::path file) : JsonUserDefaults(std::move(file), Pace{}) {}
  JsonUserDefaults(std::filesystem::path file, Pace pace);
  // Nothing is pending when it returns.
  ~JsonUserDefaults() override;

  [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const override;
  void setObject(std::string_view key, Value value) override;
  void removeObjectForKey(std::string_view key) override;

  // Waits until what has been assigned is in the file. False if it cannot be written; the store goes on
  // trying then, about once a second.
  bool flush();

 private:
  class Document;
  class Writer;

  std::unique_ptr<Document> document_;
  std::unique_ptr<Writer> writer_;
};

} // namespace tolvera::adapters

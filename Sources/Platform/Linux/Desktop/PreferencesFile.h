#pragma once

#include "Platform/Linux/Desktop/PosixFileManager.h"

#include <boost/json/object.hpp>

#include <filesystem>
#include <string>

namespace tolvera::adapters {

// The file behind JsonUserDefaults: reading, putting aside what cannot be read, and writing. Belongs to one
// thread at a time.
class PreferencesFile {
 public:
  explicit PreferencesFile(std::filesystem::path path) : path_(std::move(path)) {}

  // What the file holds; an empty object if there is none. Puts a file aside that holds no object.
  boost::json::object load();
  // Replaces the file, unless it has this content already. False if that failed, or if something that
  // cannot be read is still in its place.
  bool save(const boost::json::object& object);

 private:
  bool putAside();

  std::filesystem::path path_;
  PosixFileManager files_;
  std::string written_; // the content as last read or written
  bool blocked_ = false;
};

} // namespace tolvera::adapters

#pragma once

#include "Platform/Linux/Desktop/PosixFileManager.h"

#include <boost/json/object.hpp>

#include <filesystem>
#include <string>

namespace tolvera::adapters {

// The file behind JsonUserDefaults. One thread at a time.
class PreferencesFile {
 public:
  explicit PreferencesFile(std::filesystem::path path) : path_(std::move(path)) {}

  // The file's object; an empty one if there is no file. A file that holds no object is put aside.
  boost::json::object load();
  // Replaces the file unless it has this content. False if that failed or if an unreadable file could not be
  // put aside.
  bool save(const boost::json::object& object);

 private:
  bool putAside();

  std::filesystem::path path_;
  PosixFileManager files_;
  std::string written_; // the content as last read or written
  bool blocked_ = false;
};

} // namespace tolvera::adapters

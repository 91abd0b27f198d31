#pragma once

#include "Async/Task.h"

#include <filesystem>
#include <functional>
#include <memory>

namespace tolvera::adapters {

// Tells when a file comes to its place by being renamed, also if its folder comes later. Without a way to
// watch it says nothing. Made and destroyed on any thread; destroyed when `executor` runs nothing any more.
class FileWatch {
 public:
  // `appeared` is called on `executor`, an io_context's, which outlives this object. An empty path is not
  // watched.
  FileWatch(const Executor& executor, const std::filesystem::path& file, std::function<void()> appeared);
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

 private:
  struct State;

  std::shared_ptr<State> state_;
};

} // namespace tolvera::adapters

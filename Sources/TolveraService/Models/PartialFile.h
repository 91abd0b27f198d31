#pragma once

#include "TolveraService/Models/ModelCatalogue.h"
#include "TolveraService/Models/Sha256.h"

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

namespace tolvera::service {

// A model that is on its way into the user's directory. It has a partial name until it is whole and its hash
// is right; what has come stays for the next try unless it turns out to be wrong. One thread at a time. Every
// function but the destructor may throw std::system_error.
class PartialFile {
 public:
  // Makes the directory, and takes up what an earlier try has left. Throws std::runtime_error if the disk has
  // not twice the model's size.
  explicit PartialFile(const Model& model);
  ~PartialFile();
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;

  [[nodiscard]] std::uint64_t size() const { return size_; }
  // What the publisher called the version that the bytes are of; empty if that is not known.
  [[nodiscard]] const std::string& versionTag() const { return versionTag_; }

  // Drops what is there: the bytes that follow are of the version `versionTag`, from its start.
  void restart(std::string versionTag);
  // False, and nothing is written, if the model would become longer than it is published.
  bool add(std::span<const char> bytes);
  // Makes it the model. A file whose contents are wrong is deleted; then std::runtime_error is thrown.
  void commit();

 private:
  void discard();

  const Model& model_;
  std::filesystem::path path_;
  std::filesystem::path partialPath_;
  std::filesystem::path tagPath_;
  int file_ = -1;
  std::uint64_t size_ = 0;
  std::string versionTag_;
  Sha256 hash_;
};

} // namespace tolvera::service

#include "TolveraService/Models/PartialFile.h"

#include "TolveraService/Models/ModelStore.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

namespace tolvera::service {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void failed(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void synchronise(const fs::path& directory) {
  const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) failed(directory.string());
  ::fsync(descriptor);
  ::close(descriptor);
}

} // namespace

PartialFile::PartialFile(const Model& model) : model_(model) {
  const fs::path directory = ModelStore::ownDirectory();
  fs::create_directories(directory);
  path_ = directory / model.file;
  partialPath_ = path_.string() + ".part";
  tagPath_ = path_.string() + ".part.tag";
  if (const auto space = fs::space(directory).available; space < 2 * model.size)
    throw std::runtime_error(directory.string() + " has no room: twice the model's size is asked for");
  file_ = ::open(partialPath_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (file_ < 0) failed(partialPath_.string());
  std::getline(std::ifstream(tagPath_), versionTag_);
  std::vector<char> block(1 << 18);
  while (true) {
    const ssize_t count = ::read(file_, block.data(), block.size());
    if (count < 0) failed(partialPath_.string());
    if (count == 0) break;
    hash_.add({block.data(), static_cast<std::size_t>(count)});
    size_ += static_cast<std::uint64_t>(count);
  }
}

PartialFile::~PartialFile() {
  if (file_ >= 0) ::close(file_);
}

void PartialFile::restart(std::string versionTag) {
  if (::ftruncate(file_, 0) != 0 || ::lseek(file_, 0, SEEK_SET) != 0) failed(partialPath_.string());
  size_ = 0;
  hash_ = Sha256();
  versionTag_ = std::move(versionTag);
  std::ofstream(tagPath_) << versionTag_ << '\n';
}

bool PartialFile::add(std::span<const char> bytes) {
  if (size_ + bytes.size() > model_.size) return false;
  for (auto rest = bytes; !rest.empty();) {
    const ssize_t count = ::write(file_, rest.data(), rest.size());
    if (count < 0) failed(partialPath_.string());
    rest = rest.subspan(static_cast<std::size_t>(count));
  }
  hash_.add(bytes);
  size_ += bytes.size();
  return true;
}

void PartialFile::commit() {
  if (size_ != model_.size || hash_.hexadecimal() != model_.sha256) {
    discard();
    throw std::runtime_error("what came is not the model as published; it was deleted");
  }
  if (::fsync(file_) != 0) failed(partialPath_.string());
  fs::rename(partialPath_, path_);
  fs::remove(tagPath_);
  synchronise(path_.parent_path());
  ModelStore::noteChecked(model_, path_);
}

void PartialFile::discard() {
  std::error_code ignored;
  fs::remove(partialPath_, ignored);
  fs::remove(tagPath_, ignored);
}

} // namespace tolvera::service

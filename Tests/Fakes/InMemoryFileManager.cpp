#include "Fakes/InMemoryFileManager.h"

namespace tolvera::test {

bool InMemoryFileManager::createPrivateDirectory(const std::filesystem::path& directory) {
  if (!readOnly_) directories_.insert(directory.lexically_normal());
  return directories_.contains(directory.lexically_normal());
}

std::optional<std::string> InMemoryFileManager::contents(const std::filesystem::path& file) const {
  const auto found = files.find(file);
  return found == files.end() ? std::nullopt : std::optional(found->second);
}

bool InMemoryFileManager::writePrivateFile(const std::filesystem::path& file, std::string_view content) {
  if (readOnly_ || !directories_.contains(file.parent_path())) return false;
  files.insert_or_assign(file, std::string(content));
  return true;
}

void InMemoryFileManager::remove(const std::filesystem::path& file) {
  if (!readOnly_) files.erase(file);
}

} // namespace tolvera::test

#include "TolveraService/Models/ModelStore.h"

#include "TolveraService/Models/Sha256.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace tolvera::service {

namespace {

namespace fs = std::filesystem;

std::string environment(const char* name, const std::string& otherwise) {
  const char* const value = std::getenv(name);
  return value != nullptr && *value != '\0' ? value : otherwise;
}

std::optional<fs::path> dataHome() {
  fs::path own = environment("XDG_DATA_HOME", "");
  if (own.is_absolute()) return own;
  const fs::path home = environment("HOME", "");
  if (home.is_absolute()) return home / ".local/share";
  return std::nullopt;
}

fs::path checkNote(const fs::path& path) { return path.string() + ".checked"; }

// Changes whenever the file does.
std::string stateOf(const Model& model, const fs::path& path) {
  std::ostringstream state;
  state << model.sha256 << ' ' << fs::file_size(path) << ' '
        << fs::last_write_time(path).time_since_epoch().count() << '\n';
  return state.str();
}

bool isNotedAsChecked(const Model& model, const fs::path& path) {
  std::ifstream file(checkNote(path));
  std::string line;
  return std::getline(file, line) && line + '\n' == stateOf(model, path);
}

} // namespace

std::vector<fs::path> dataDirectories() {
  std::vector<fs::path> directories;
  if (const auto home = dataHome()) directories.push_back(*home);
  std::istringstream list(environment("XDG_DATA_DIRS", "/usr/local/share:/usr/share"));
  for (std::string directory; std::getline(list, directory, ':');)
    if (fs::path(directory).is_absolute()) directories.emplace_back(directory);
  return directories;
}

std::string sha256OfFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  Sha256 hash;
  std::vector<char> block(1 << 18);
  while (file.read(block.data(), static_cast<std::streamsize>(block.size())) || file.gcount() > 0)
    hash.add({block.data(), static_cast<std::size_t>(file.gcount())});
  if (!file.eof())
    throw fs::filesystem_error("the file cannot be read", path, {errno, std::generic_category()});
  return hash.hexadecimal();
}

fs::path ModelStore::ownDirectory() {
  const auto home = dataHome();
  if (!home) throw std::runtime_error("there is no home directory to keep models in");
  return *home / "tolvera/models";
}

std::optional<fs::path> ModelStore::find(const Model& model) {
  std::error_code ignored;
  for (const fs::path& directory : dataDirectories()) {
    fs::path path = directory / "tolvera/models" / model.file;
    if (fs::is_regular_file(path, ignored)) return path;
  }
  return std::nullopt;
}

bool ModelStore::isInstalled(const Model& model) {
  const auto path = find(model);
  return path && !fault(model, *path);
}

std::optional<std::string> ModelStore::fault(const Model& model, const fs::path& path) {
  const std::string cure = "; mend it with: tolvera-service models install " + model.name;
  try {
    if (fs::file_size(path) != model.size) return path.string() + " has another size than published" + cure;
    if (isNotedAsChecked(model, path)) return std::nullopt;
    if (sha256OfFile(path) != model.sha256)
      return path.string() + " has other contents than published" + cure;
    noteChecked(model, path);
    return std::nullopt;
  } catch (const fs::filesystem_error& error) {
    return path.string() + " cannot be read: " + error.code().message() + cure;
  }
}

void ModelStore::noteChecked(const Model& model, const fs::path& path) {
  std::ofstream(checkNote(path)) << stateOf(model, path);
}

bool ModelStore::remove(const Model& model) {
  const fs::path path = ownDirectory() / model.file;
  const bool wasThere = fs::remove(path);
  for (const char* suffix : {".checked", ".part", ".part.tag"}) fs::remove(path.string() + suffix);
  return wasThere;
}

} // namespace tolvera::service

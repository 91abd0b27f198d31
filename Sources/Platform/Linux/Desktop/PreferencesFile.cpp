#include "Platform/Linux/Desktop/PreferencesFile.h"

#include "Async/Log.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string_view>
#include <system_error>

namespace tolvera::adapters {

namespace {

namespace json = boost::json;

std::optional<json::object> parsed(std::string_view text) {
  constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF"; // some editors put one
  if (text.starts_with(byteOrderMark)) text.remove_prefix(byteOrderMark.size());
  json::parse_options options;
  options.max_depth = 256;
  boost::system::error_code error;
  json::value value = json::parse(text, error, {}, options);
  if (error || !value.is_object()) return std::nullopt;
  return std::move(value.get_object());
}

// A number in its shortest form.
std::string serialized(const json::value& value) {
  const double* number = value.if_double();
  if (!number || !std::isfinite(*number)) return json::serialize(value);
  std::array<char, 32> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), *number).ptr;
  return {digits.data(), end};
}

// One line for each key, for people who edit the file.
std::string serialized(const json::object& object) {
  std::string text = "{";
  const char* separator = "\n  ";
  for (const auto& [key, value] : object) {
    text += separator + json::serialize(json::string(key)) + ": " + serialized(value);
    separator = ",\n  ";
  }
  return text + "\n}\n";
}

} // namespace

json::object PreferencesFile::load() {
  std::error_code error;
  const bool there =
      std::filesystem::symlink_status(path_, error).type() != std::filesystem::file_type::not_found;
  if (!there) return {};
  if (auto content = files_.contents(path_)) {
    if (auto object = parsed(*content)) {
      written_ = std::move(*content);
      return std::move(*object);
    }
  }
  blocked_ = !putAside();
  log::warn(log::Category::account, path_.native(), " holds no JSON object and ",
            blocked_ ? "cannot be moved: preferences will not be saved" : "was put aside");
  return {};
}

bool PreferencesFile::putAside() {
  for (int number = 1; number < 10'000; ++number) {
    auto aside = path_;
    aside.replace_filename(path_.stem().string() + ".unreadable-" + std::to_string(number) +
                           path_.extension().string());
    if (::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0) return true;
    if (errno == EEXIST) continue;
    // Most file systems without this kind of renaming have links.
    if (::link(path_.c_str(), aside.c_str()) == 0) return ::unlink(path_.c_str()) == 0;
    if (errno != EEXIST) return false;
  }
  return false;
}

bool PreferencesFile::save(const json::object& object) {
  if (blocked_) return false;
  std::string content = serialized(object);
  if (content == written_) return true;
  const auto directory = path_.parent_path();
  std::error_code error;
  if (!std::filesystem::is_directory(directory, error)) files_.createPrivateDirectory(directory);
  if (!files_.writePrivateFile(path_, content)) return false;
  written_ = std::move(content);
  return true;
}

} // namespace tolvera::adapters

#include "Platform/Linux/Desktop/XdgUnitNames.h"

#include <algorithm>
#include <charconv>
#include <span>

namespace tolvera::adapters {

namespace {

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const auto end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) return parts;
    text.remove_prefix(end + 1);
  }
}

// Undoes \xNN.
std::string unescaped(std::string_view text) {
  std::string result;
  for (std::size_t index = 0; index < text.size(); ++index) {
    unsigned value = 0;
    if (text.substr(index).starts_with("\\x") && index + 4 <= text.size()) {
      const char* digits = text.data() + index + 2;
      if (std::from_chars(digits, digits + 2, value, 16).ptr == digits + 2) {
        result += static_cast<char>(value);
        index += 3;
        continue;
      }
    }
    result += text[index];
  }
  return result;
}

// Some launchers do not escape the dashes of an identifier, so several parts may form one.
void add(std::vector<std::string>& ids, std::span<const std::string_view> parts) {
  std::string id;
  for (const std::string_view part : parts) {
    if (!id.empty()) id += '-';
    id += unescaped(part);
  }
  if (!id.empty() && std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(std::move(id));
}

// "app[-LAUNCHER]-ID-RANDOM.scope", "app[-LAUNCHER]-ID[@RANDOM].service", "app[-LAUNCHER]-ID[-RANDOM].slice".
void addApplication(std::vector<std::string>& ids, std::string_view name, std::string_view type) {
  if (type == "service") name = name.substr(0, name.find('@'));
  const auto parts = split(name, '-');
  const std::span all(parts);
  const std::span withoutRandom = all.first(all.size() - 1);
  const auto withAndWithoutLauncher = [&ids](std::span<const std::string_view> some) {
    add(ids, some);
    if (some.size() > 1) add(ids, some.subspan(1));
  };
  if (type == "scope") withAndWithoutLauncher(withoutRandom);
  withAndWithoutLauncher(all);
  if (type == "slice") withAndWithoutLauncher(withoutRandom);
}

// "snap.NAME.APP[-RANDOM].scope" or "snap.NAME.APP[.RANDOM].scope": the entries are called NAME_APP.
void addSnap(std::vector<std::string>& ids, std::string_view name) {
  const auto parts = split(name, '.');
  if (parts.size() < 2) return;
  const std::string snap = unescaped(parts[0]);
  const std::string app = unescaped(parts[1]);
  constexpr std::size_t randomLength = 36;
  ids.push_back(snap + "_" + app);
  if (app.size() > randomLength + 1 && app[app.size() - randomLength - 1] == '-')
    ids.push_back(snap + "_" + app.substr(0, app.size() - randomLength - 1));
  ids.push_back(snap + "_" + snap);
}

// "dbus-:CONNECTION-NAME@NUMBER.service": the bus name of a program is mostly its application's identifier.
void addBusName(std::vector<std::string>& ids, std::string_view name) {
  name = name.substr(0, name.find('@'));
  if (const auto dash = name.find('-'); dash != std::string_view::npos) {
    const std::string_view id = name.substr(dash + 1);
    add(ids, std::span(&id, 1));
  }
}

} // namespace

std::vector<std::string> XdgUnitNames::applicationIDs(std::string_view controlGroup) {
  std::vector<std::string> ids;
  auto units = split(controlGroup, '/');
  std::reverse(units.begin(), units.end());
  for (const std::string_view unit : units) {
    const auto point = unit.rfind('.');
    if (point == std::string_view::npos) continue;
    const std::string_view type = unit.substr(point + 1);
    const std::string_view name = unit.substr(0, point);
    if (type != "scope" && type != "service" && type != "slice") continue;
    if (name.starts_with("app-"))
      addApplication(ids, name.substr(4), type);
    else if (name.starts_with("snap."))
      addSnap(ids, name.substr(5));
    else if (name.starts_with("dbus-"))
      addBusName(ids, name.substr(5));
  }
  return ids;
}

} // namespace tolvera::adapters

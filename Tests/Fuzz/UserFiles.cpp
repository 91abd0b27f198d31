#include "Fuzz/Fuzz.h"

#include "Fakes/InMemoryPlatform.h"
#include "Harness/TemporaryDirectory.h"
#include "Platform/Linux/Desktop/PreferencesFile.h"
#include "Platform/Linux/Desktop/XdgDesktopIndex.h"
#include "Tolvera/Model/TokenStore.h"

#include <array>
#include <fstream>
#include <string>
#include <vector>

// Files that a user or another program has written: preferences, a token, and an entry of the desktop.
void tolvera::test::fuzz(std::string_view input) {
  static const TemporaryDirectory directory;
  const auto write = [&](const char* name) {
    const auto path = directory.path() / name;
    std::ofstream(path, std::ios::binary) << input;
    return path;
  };
  adapters::PreferencesFile preferences(write("preferences.json"));
  const auto loaded = preferences.load();
  require(preferences.save(loaded), "preferences can be saved after any file");

  InMemoryFileManager files;
  TokenStore::save(files, input, "server");
  if (const auto token = TokenStore::load(files, "server"))
    require(token->find_first_of({"\0\r\n", 3}) == token->npos, "a header carries every token");

  write("any.desktop");
  const std::array directories{directory.path()};
  const adapters::XdgDesktopIndex index(directories);
  if (const auto* entry = index.entry("any")) (void)index.entriesOf(entry->program, entry->arguments);
  for (const auto& file : std::filesystem::directory_iterator(directory.path()))
    std::filesystem::remove(file);
}

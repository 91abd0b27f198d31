#include "Tolvera/Model/TokenStore.h"

#include "Fakes/InMemoryFileManager.h"

#include <gtest/gtest.h>

namespace tolvera {
namespace {

TEST(TokenStore, KeepsOneFileForEachServer) {
  constexpr const char* local = "http://127.0.0.1:18790/livetranslate";
  constexpr const char* localFile = "/support/Tolvera/token-http___127.0.0.1_18790_livetranslate";
  test::InMemoryFileManager files;
  TokenStore::clear(files, local);
  TokenStore::save(files, "first", local);
  TokenStore::save(files, "second", "https://example.org");
  EXPECT_EQ(files.files[localFile], "first");
  EXPECT_EQ(TokenStore::load(files, "https://example.org"), "second");
  TokenStore::clear(files, "https://example.org");
  EXPECT_FALSE(TokenStore::load(files, "https://example.org"));
  files.readOnly = true;
  TokenStore::save(files, "lost", local);
  EXPECT_EQ(TokenStore::load(files, local), "first");

  const std::pair<const char*, std::optional<std::string>> contents[] = {
      {" \t to ken\r\n\n", "to ken"}, {"", ""}, {"\n \n", ""}, {"\xff\xfe token", std::nullopt}};
  for (const auto& [content, token] : contents) {
    files.files[localFile] = content;
    EXPECT_EQ(TokenStore::load(files, local), token) << content;
  }
}

} // namespace
} // namespace tolvera

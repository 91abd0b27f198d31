#include "Tolvera/Model/TokenStore.h"

#include "Fakes/InMemoryFileManager.h"

#include <gtest/gtest.h>

namespace tolvera {
namespace {

constexpr const char* local = "http://127.0.0.1:18790/livetranslate";
constexpr const char* localFile = "/support/Tolvera/token-http___127.0.0.1_18790_livetranslate";

TEST(TokenStore, KeepsOneFileForEachServer) {
  test::InMemoryFileManager files;
  TokenStore::save(files, "first", local);
  TokenStore::save(files, "second", "https://example.org");
  EXPECT_EQ(files.files.at(localFile), "first");
  EXPECT_EQ(TokenStore::load(files, "https://example.org"), "second");

  TokenStore::clear(files, "https://example.org");
  EXPECT_FALSE(TokenStore::load(files, "https://example.org"));
  EXPECT_EQ(TokenStore::load(files, local), "first");
  TokenStore::save(files, "third", local);
  EXPECT_EQ(TokenStore::load(files, local), "third");
}

TEST(TokenStore, TrimsWhatItReadsAndTellsBlankFromAbsent) {
  test::InMemoryFileManager files;
  const std::pair<const char*, std::optional<std::string>> contents[] = {
      {" \t to ken\r\n\n", "to ken"}, {"", ""}, {"\n \n", ""}, {"\xff\xfe token", std::nullopt}};
  for (const auto& [content, token] : contents) {
    files.files[localFile] = content;
    EXPECT_EQ(TokenStore::load(files, local), token) << content;
  }
}

TEST(TokenStore, FailsInSilence) {
  test::InMemoryFileManager files;
  TokenStore::clear(files, local);
  files.setReadOnly(true);
  TokenStore::save(files, "lost", local);
  EXPECT_FALSE(TokenStore::load(files, local));
}

} // namespace
} // namespace tolvera

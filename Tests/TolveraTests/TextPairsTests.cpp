// Every text is a pair of literals where it is used. This reads the sources and looks at each pair.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace tolvera {
namespace {

// Literals that stand next to each other, and in QML ones joined by "+", are one text.
const std::string text = R"re(((?:[\s+]*u?"(?:[^"\\]|\\.)+"(?:_qs)?)+))re";
const std::regex call(R"(\bpick\(\s*u?")");
const std::regex pair(R"(\bpick\()" + text + R"(\s*,)" + text + R"(\s*\))");
const std::regex placeholder(R"(%L?[0-9]{1,2}|%[-+.0-9]*l{0,2}[a-z]|\{[^{}]*\})");
const std::regex ideograph("[\xE4-\xE9][\x80-\xBF][\x80-\xBF]");

std::multiset<std::string> all(const std::string& source, const std::regex& what) {
  return {std::sregex_token_iterator(source.begin(), source.end(), what), {}};
}

TEST(TextPairs, HaveTwoSidesOfOneForm) {
  std::size_t calls = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(TOLVERA_SOURCES)) {
    const auto extension = entry.path().extension();
    if (extension != ".h" && extension != ".cpp" && extension != ".qml") continue;
    std::ifstream file(entry.path());
    const std::string source(std::istreambuf_iterator<char>(file), {});
    const std::vector<std::smatch> pairs{std::sregex_iterator(source.begin(), source.end(), pair), {}};
    EXPECT_EQ(all(source, call).size(), pairs.size()) << "a call that is no pair of texts: " << entry.path();
    for (const auto& match : pairs) {
      EXPECT_EQ(all(match[1], placeholder), all(match[2], placeholder)) << match.str();
      EXPECT_FALSE(std::regex_search(match.str(2), ideograph)) << "Chinese for English: " << match.str();
    }
    calls += pairs.size();
  }
  EXPECT_GE(calls, 17u); // those of Strings alone
}

} // namespace
} // namespace tolvera

// Every text is a pair of literals where it is used. This reads the sources and looks at each pair.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
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

std::vector<std::string> all(const std::string& source, const std::regex& what) {
  std::vector<std::string> found;
  for (std::sregex_iterator it(source.begin(), source.end(), what), end; it != end; ++it)
    found.push_back(it->str());
  std::ranges::sort(found);
  return found;
}

// What is wrong with the pairs of a source text.
std::vector<std::string> complaints(const std::string& source) {
  std::vector<std::string> found;
  std::size_t pairs = 0;
  for (std::sregex_iterator it(source.begin(), source.end(), pair), end; it != end; ++it, ++pairs) {
    if (all(it->str(1), placeholder) != all(it->str(2), placeholder))
      found.push_back("placeholders differ: " + it->str());
    if (std::regex_search(it->str(2), ideograph)) found.push_back("Chinese for English: " + it->str());
  }
  if (all(source, call).size() != pairs) found.emplace_back("a call that is no pair of texts");
  return found;
}

TEST(TextPairs, FaultsAreFound) {
  EXPECT_THAT(complaints(R"(QString pick(const QString&, const QString&); x.pick("翻%1译", "Trans"
                            "late %1") + pick("停\"止", "Stop"); strings.pick("甲" +
                            "乙", "A " + "B"))"),
              testing::IsEmpty());
  for (const char* faulty :
       {R"(pick("", "Stop"))", R"(pick("停止", ""))", R"(pick("%1 分", "%2m"))", R"(pick("%1 分 %1", "%1m"))",
        R"(pick("分", "{}m"))", R"(pick("停止", stop))", R"(pick("停止"))", R"(pick("Stop", "停止"))"})
    EXPECT_EQ(complaints(faulty).size(), 1u) << faulty;
}

TEST(TextPairs, HaveTwoSidesOfOneForm) {
  std::size_t calls = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(TOLVERA_SOURCES)) {
    const auto extension = entry.path().extension();
    if (extension != ".h" && extension != ".cpp" && extension != ".qml") continue;
    std::stringstream source;
    source << std::ifstream(entry.path()).rdbuf();
    EXPECT_THAT(complaints(source.str()), testing::IsEmpty()) << entry.path();
    calls += all(source.str(), call).size();
  }
  EXPECT_GE(calls, 17u); // those of Strings alone
}

} // namespace
} // namespace tolvera

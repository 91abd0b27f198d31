// Every text is a pair of literals where it is used. This reads the sources and looks at each pair.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera {
namespace {

struct Pair {
  std::string chinese;
  std::string english;
};

// Reads C++ and QML just as far as it takes to find `pick("…", "…")`. Neighbouring literals, and in QML
// ones joined by "+", are one text.
class PairScanner {
 public:
  explicit PairScanner(std::string_view source) : rest_(source) {}

  // The pairs, and a note for each `pick` that has a literal but is no pair of them.
  std::vector<Pair> pairs;
  std::vector<std::string> complaints;

  void scan() {
    static constexpr std::string_view call = "pick(";
    for (auto at = rest_.find(call); at != std::string_view::npos; at = rest_.find(call)) {
      const std::string_view shown = rest_.substr(at, 80);
      rest_.remove_prefix(at + call.size());
      const auto chinese = text();
      if (!chinese) continue; // a declaration, or a pair that is handed on
      const auto english = take(',') ? text() : std::nullopt;
      if (english && take(')'))
        pairs.push_back({*chinese, *english});
      else
        complaints.push_back("not a pair of literals: " + std::string(shown));
    }
  }

 private:
  void skipSpace() {
    while (!rest_.empty() && (rest_.front() == ' ' || rest_.front() == '\n')) rest_.remove_prefix(1);
  }

  bool take(char expected) {
    skipSpace();
    if (rest_.empty() || rest_.front() != expected) return false;
    rest_.remove_prefix(1);
    return true;
  }

  std::optional<std::string> text() {
    std::optional<std::string> joined;
    for (;;) {
      skipSpace();
      if (joined && take('+')) skipSpace();
      if (rest_.starts_with("u\"")) rest_.remove_prefix(1);
      if (!take('"')) return joined;
      joined = joined.value_or("") + literal();
      if (rest_.starts_with("_qs")) rest_.remove_prefix(3);
    }
  }

  std::string literal() {
    std::string content;
    for (; !rest_.empty() && rest_.front() != '"'; rest_.remove_prefix(1)) {
      if (rest_.front() == '\\') rest_.remove_prefix(1);
      if (!rest_.empty()) content += rest_.front();
    }
    if (!rest_.empty()) rest_.remove_prefix(1);
    return content;
  }

  std::string_view rest_;
};

std::vector<std::string> placeholders(const std::string& text) {
  static const std::regex placeholder(R"(%L?[0-9]{1,2}|%[-+.0-9]*l{0,2}[a-z]|\{[^{}]*\})");
  std::vector<std::string> found;
  for (std::sregex_iterator it(text.begin(), text.end(), placeholder), end; it != end; ++it)
    found.push_back(it->str());
  std::ranges::sort(found);
  return found;
}

// What is wrong with the pairs of a source text.
std::vector<std::string> complaints(std::string_view source, std::size_t& pairsSeen) {
  static const std::regex ideograph("[\xE4-\xE9][\x80-\xBF][\x80-\xBF]");
  PairScanner scanner(source);
  scanner.scan();
  pairsSeen += scanner.pairs.size();
  std::vector<std::string> found = scanner.complaints;
  for (const auto& [chinese, english] : scanner.pairs) {
    const std::string shown = "\"" + chinese + "\", \"" + english + "\"";
    if (chinese.empty() || english.empty()) found.push_back("an empty side: " + shown);
    if (placeholders(chinese) != placeholders(english)) found.push_back("placeholders differ: " + shown);
    if (std::regex_search(english, ideograph)) found.push_back("Chinese on the English side: " + shown);
  }
  return found;
}

TEST(TextPairs, FaultsOfAPairAreFound) {
  std::size_t pairs = 0;
  EXPECT_THAT(complaints(R"(QString pick(const QString&, const QString&); x.pick("翻%1译", "Trans"
                            "late %1") + pick("停\"止", "Stop"); strings.pick("甲" +
                            "乙", "A " + "B"))",
                         pairs),
              testing::IsEmpty());
  EXPECT_EQ(pairs, 3u);
  for (const char* faulty :
       {R"(pick("", "Stop"))", R"(pick("停止", ""))", R"(pick("%1 分", "%2m"))", R"(pick("%1 分 %1", "%1m"))",
        R"(pick("分", "{}m"))", R"(pick("停止", stop))", R"(pick("停止"))", R"(pick("Stop", "停止"))"})
    EXPECT_EQ(complaints(faulty, pairs).size(), 1u) << faulty;
}

TEST(TextPairs, EveryPairInTheSourcesHasTwoSidesOfTheSameForm) {
  std::size_t pairs = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(TOLVERA_SOURCES)) {
    const auto extension = entry.path().extension();
    if (extension != ".h" && extension != ".cpp" && extension != ".qml") continue;
    std::stringstream source;
    source << std::ifstream(entry.path()).rdbuf();
    EXPECT_THAT(complaints(source.str(), pairs), testing::IsEmpty()) << entry.path();
  }
  EXPECT_GE(pairs, 17u); // those of Strings alone
}

} // namespace
} // namespace tolvera

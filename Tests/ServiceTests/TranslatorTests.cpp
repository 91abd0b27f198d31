#include "TolveraService/Engine/ApertiumMode.h"
#include "TolveraService/Engine/Translator.h"

#include "Harness/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>

namespace tolvera::service {
namespace {

using Kind = Translator::Result::Kind;

TEST(ApertiumMode, ReadsProgramsWithoutAShell) {
  const auto stages = parseApertiumMode("cat -w '/some where/a.bin' | tee $1 $2 'b;c' ");
  ASSERT_EQ(stages.size(), 2U);
  EXPECT_TRUE(stages[0][0].ends_with("/cat"));
  EXPECT_EQ((std::vector(stages[0].begin() + 1, stages[0].end())),
            (std::vector<std::string>{"-z", "-w", "/some where/a.bin"}));
  EXPECT_EQ((std::vector(stages[1].begin() + 1, stages[1].end())),
            (std::vector<std::string>{"-z", "-g", "b;c"}));
  for (const char* bad : {"", "cat |", "| cat", "cat 'open", "no-such-program-at-all x", "/bin/cat"})
    EXPECT_THROW(parseApertiumMode(bad), std::runtime_error) << bad;
}

TEST(Translator, OffersInstalledLanguagesOnly) {
  const test::TemporaryDirectory empty;
  EXPECT_TRUE(Translator(empty.path()).targets().empty());
  Translator translator;
  for (const std::string& target : translator.targets()) {
    const auto result =
        translator.translate(target, "The children are playing in the garden behind the house");
    EXPECT_EQ(result.kind, Kind::translated) << target;
    EXPECT_EQ(result.text.find("children"), std::string::npos) << target;
    EXPECT_EQ(result.text.find_first_of("*#@<>^$"), std::string::npos) << result.text;
  }
  EXPECT_EQ(translator.translate("es", "The children are playing in the garden").text,
            "Los niños están tocando en el jardín");
  EXPECT_FALSE(translator.canTranslate("en"));
  EXPECT_FALSE(translator.canTranslate("zh"));
  EXPECT_EQ(translator.translate("zh", "Hello").kind, Kind::failed);
}

TEST(Translator, UnknownWordsAreQuoted) {
  Translator translator;
  EXPECT_EQ(translator.translate("es", "Zyzzyva frobnicator").kind, Kind::nothingKnown);
  for (const char* odd :
       {"^house<n>$", "[a]{b}", "\\", "a\nb", "$(reboot) `x` ; 'y'", "<b>house</b>", "日本"})
    EXPECT_NE(translator.translate("es", odd).kind, Kind::failed) << odd;
  // None of it is left in the pipeline.
  EXPECT_EQ(translator.translate("es", "The frobnicator is in the house").text,
            "El “frobnicator” es en la casa");
}

// The processes that this one has started.
std::vector<pid_t> children() {
  std::vector<pid_t> all;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream file(task.path() / "children");
    for (pid_t child = 0; file >> child;) all.push_back(child);
  }
  return all;
}

TEST(Translator, DeadEnginesStartAgain) {
  Translator translator;
  translator.warmUp("es");
  const std::size_t stages = children().size();
  ASSERT_GT(stages, 3U);
  // One that hangs is as good as dead.
  for (const auto& [victim, signal] :
       {std::pair{std::size_t{0}, SIGKILL}, {stages / 2, SIGKILL}, {stages - 1, SIGKILL}, {1, SIGSTOP}}) {
    ::kill(children().at(victim), signal);
    EXPECT_EQ(translator.translate("es", "The house").text, "La casa") << victim;
  }
  EXPECT_EQ(children().size(), stages);
}

} // namespace
} // namespace tolvera::service

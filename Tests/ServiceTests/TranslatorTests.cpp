#include "TolveraService/Engine/ApertiumTranslator.h"

#include "Harness/TemporaryDirectory.h"
#include "ServiceTests/Clients.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

namespace tolvera::service {
namespace {

using Kind = Translator::Result::Kind;

Translator::Result intoSpanish(Translator& translator, std::string_view line) {
  return translator.translate("en", "es", line, {});
}

TEST(Translator, OffersInstalledLanguagesOnly) {
  const test::TemporaryDirectory empty;
  EXPECT_TRUE(ApertiumTranslator(empty.path()).targets("en").empty());
  ApertiumTranslator translator;
  for (const std::string& target : translator.targets("en")) {
    const auto result = translator.translate("en", target, "The children are playing in the garden", {});
    EXPECT_EQ(result.kind, Kind::translated) << target;
    EXPECT_EQ(result.text.find("children"), std::string::npos) << target;
    EXPECT_EQ(result.text.find_first_of("*#@<>^$"), std::string::npos) << result.text;
  }
  EXPECT_EQ(intoSpanish(translator, "The children are playing in the garden").text,
            "Los niños están tocando en el jardín");
  EXPECT_EQ(translator.translate("fr", "es", "Les enfants jouent dans le jardin", {}).text,
            "Los niños juegan en el jardín");
  EXPECT_TRUE(translator.canTranslate("gl", "pt")) << "by way of Spanish";
  EXPECT_FALSE(translator.canTranslate("en", "en"));
  EXPECT_FALSE(translator.canTranslate("en", "zh"));
  EXPECT_EQ(translator.translate("en", "zh", "Hello", {}).kind, Kind::failed);
}

TEST(Translator, UnknownWordsAreQuoted) {
  ApertiumTranslator translator;
  EXPECT_EQ(intoSpanish(translator, "Zyzzyva frobnicator").kind, Kind::nothingKnown);
  for (const char* odd :
       {"^house<n>$", "[a]{b}", "\\", "a\nb", "$(reboot) `x` ; 'y'", "<b>house</b>", "日本"})
    EXPECT_NE(intoSpanish(translator, odd).kind, Kind::failed) << odd;
  // None of it is left in the pipeline.
  EXPECT_EQ(intoSpanish(translator, "The frobnicator is in the house").text,
            "El “frobnicator” es en la casa");
}

TEST(Translator, DeadEnginesStartAgain) {
  ApertiumTranslator translator;
  translator.warmUp("en", "es", {});
  const std::size_t stages = test::childrenOf(::getpid()).size();
  ASSERT_GT(stages, 3U);
  // One that hangs is as good as dead.
  for (const auto& [victim, signal] :
       {std::pair{std::size_t{0}, SIGKILL}, {stages / 2, SIGKILL}, {stages - 1, SIGKILL}, {1, SIGSTOP}}) {
    ::kill(test::childrenOf(::getpid()).at(victim), signal);
    EXPECT_EQ(intoSpanish(translator, "The house").text, "La casa") << victim;
  }
  EXPECT_EQ(test::childrenOf(::getpid()).size(), stages);
}

} // namespace
} // namespace tolvera::service

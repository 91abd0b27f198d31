#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/TextNormalizer.h"
#include "TolveraService/Engine/UnknownWords.h"
#include "TolveraService/Options.h"

#include <gtest/gtest.h>

namespace tolvera::service {
namespace {

TEST(SettledText, WordSettlesAfterFiveLooks) {
  SettledText line(5);
  for (int look = 1; look <= 4; ++look) EXPECT_EQ(line.update("we need more").text, "");
  EXPECT_EQ(line.update("we need more"), (SettledText::Split{"we", " need more"}));
  EXPECT_EQ(line.update("we need more time").text, "we need");
  EXPECT_EQ(line.update("he need mortal time"), (SettledText::Split{"we need", " mortal time"}));
  EXPECT_EQ(line.update(""), (SettledText::Split{"we need", ""}));
}

TEST(TextNormalizer, WritesEnglishAsPrinted) {
  EXPECT_EQ(sentence("he said that i'll come on tuesday"), "He said that I'll come on Tuesday.");
  EXPECT_EQ(sentence("i may march in may"), "I may march in May.");
  EXPECT_EQ(sentence("  "), "");
  EXPECT_EQ(tidied(" Dijo que  sí , y nada  más . "), "Dijo que sí, y nada más.");
}

TEST(UnknownWords, AreQuotedAtTheEnd) {
  UnknownWords unknown;
  const std::string hidden = unknown.hide("El *frobnicator *come mi #canal y d'*zyzzyva, @son.");
  EXPECT_EQ(hidden.find("frobnicator"), std::string::npos);
  EXPECT_EQ(unknown.show(hidden), "El “frobnicator come” mi canal y d'“zyzzyva”, “son”.");
  // The second mode marks the place-holders, and a word of the first one's language.
  EXPECT_EQ(unknown.show(unknown.hide("O *paraguas *" + wordsOf(hidden).at(1))), "O “paraguas frobnicator”");
}

TEST(Options, WrongCommandLinesAreRefused) {
  EXPECT_EQ(parseOptions({"--port", "0", "--state", "/tmp/x"}).stateDirectory, "/tmp/x");
  for (const std::vector<std::string_view>& wrong :
       {std::vector<std::string_view>{"--port"}, {"--port", "70000"}, {"--port", "1x"}, {"--verbose"}})
    EXPECT_THROW(parseOptions(wrong), OptionError) << wrong.back();
}

} // namespace
} // namespace tolvera::service

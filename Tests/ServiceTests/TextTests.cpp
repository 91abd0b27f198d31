#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/TextNormalizer.h"
#include "TolveraService/Engine/UnknownWords.h"
#include "TolveraService/Options.h"
#include "TolveraService/Stream/StreamProtocol.h"

#include <gtest/gtest.h>

namespace tolvera::service {
namespace {

TEST(SettledText, WordSettlesAfterFiveLooks) {
  SettledText line;
  for (int look = 1; look <= 4; ++look) EXPECT_EQ(line.update("we need more").text, "");
  const auto split = line.update("we need more");
  EXPECT_EQ(split.text, "we");
  EXPECT_EQ(split.stash, " need more");
  EXPECT_EQ(line.update("we need more time").text, "we need");
  EXPECT_EQ(line.update("we need mortal time").stash, " mortal time");
}

TEST(SettledText, SettledWordsStay) {
  SettledText line;
  for (int look = 0; look < 5; ++look) line.update("the weather was");
  EXPECT_EQ(line.update("whether it was").text, "the");
  EXPECT_EQ(line.update("whether it was").stash, " it was");
  const auto shrunk = line.update("");
  EXPECT_EQ(shrunk.text, "the");
  EXPECT_EQ(shrunk.stash, "");
}

TEST(TextNormalizer, WritesEnglishAsPrinted) {
  EXPECT_EQ(sentence("he said that i'll come on tuesday"), "He said that I'll come on Tuesday.");
  EXPECT_EQ(sentence("i may march in may"), "I may march in May.");
  EXPECT_EQ(sentence("monday's news"), "Monday's news.");
  EXPECT_EQ(sentence("  "), "");
  EXPECT_EQ(tidied(" Dijo que  sí , y nada  más . "), "Dijo que sí, y nada más.");
}

TEST(UnknownWords, AreQuotedAtTheEnd) {
  UnknownWords unknown;
  const std::string hidden = unknown.hide("El *frobnicator *come mi #canal y d'*zyzzyva, @son.");
  EXPECT_EQ(hidden.find("frobnicator"), std::string::npos);
  EXPECT_EQ(hidden.find('#'), std::string::npos);
  EXPECT_EQ(unknown.known, 4U);
  EXPECT_EQ(unknown.show(hidden), "El “frobnicator come” mi canal y d'“zyzzyva”, “son”.");

  // The second mode marks the place-holders, and a word of the first one's language.
  EXPECT_EQ(unknown.show(unknown.hide("O *paraguas *" + wordsOf(hidden).at(1))), "O “paraguas frobnicator”");
  EXPECT_EQ(unknown.known, 1U);
}

TEST(StreamProtocol, ReadsTheQueryOfARun) {
  const auto parameters = parseStreamParameters(
      "/livetranslate/ws?token=a%2Bb&target=es&source=auto&dub=1&src=true&voice=&token=second");
  ASSERT_TRUE(parameters);
  EXPECT_EQ(parameters->token, "a+b");
  EXPECT_EQ(parameters->target, "es");
  EXPECT_EQ(parameters->source, "auto");
  EXPECT_TRUE(parameters->dub);
  EXPECT_FALSE(parameters->showSource); // only the digit counts
  EXPECT_EQ(parseStreamParameters("/livetranslate/ws")->token, "");
  EXPECT_FALSE(parseStreamParameters("no address"));
}

TEST(Options, WrongCommandLinesAreRefused) {
  const Options options = parseOptions({"--port", "0", "--state", "/tmp/x"});
  EXPECT_EQ(options.port, 0);
  EXPECT_EQ(options.stateDirectory, "/tmp/x");
  EXPECT_EQ(parseOptions({"--help"}).action, Options::Action::help);
  for (const std::vector<std::string_view>& wrong :
       {std::vector<std::string_view>{"--port"}, {"--port", "70000"}, {"--port", "1x"}, {"--verbose"}})
    EXPECT_THROW(parseOptions(wrong), OptionError) << wrong.back();
}

} // namespace
} // namespace tolvera::service

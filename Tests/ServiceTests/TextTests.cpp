#include "TolveraService/LanguageNames.h"
#include "TolveraService/Options.h"
#include "TolveraService/SettledText.h"
#include "TolveraService/StreamProtocol.h"
#include "TolveraService/TextNormalizer.h"
#include "TolveraService/UnknownWords.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

namespace tolvera::service {
namespace {

TEST(SettledTextTest, AWordSettlesWhenItStoodForFiveLooksAndTwoWordsFollow) {
  SettledText line;
  for (int look = 1; look <= 4; ++look) EXPECT_EQ(line.update("we need more").text, "");
  const auto split = line.update("we need more");
  EXPECT_EQ(split.text, "we");
  EXPECT_EQ(split.stash, " need more");
  EXPECT_EQ(line.update("we need more time").text, "we need");
  EXPECT_EQ(line.update("we need mortal time").stash, " mortal time");
}

TEST(SettledTextTest, SettledWordsStayAndTheTailFollowsThem) {
  SettledText line;
  for (int look = 0; look < 5; ++look) line.update("the weather was");
  EXPECT_EQ(line.update("whether it was").text, "the");
  EXPECT_EQ(line.update("whether it was").stash, " it was");
  const auto shrunk = line.update("");
  EXPECT_EQ(shrunk.text, "the");
  EXPECT_EQ(shrunk.stash, "");
  line.reset();
  EXPECT_EQ(line.update("new").stash, "new");
}

TEST(TextNormalizerTest, WritesEnglishAsItIsPrinted) {
  EXPECT_EQ(sentence("he said that i'll come on tuesday"), "He said that I'll come on Tuesday.");
  EXPECT_EQ(sentence("i may march in may"), "I may march in May.");
  EXPECT_EQ(sentence("monday's news"), "Monday's news.");
  EXPECT_EQ(sentence("  "), "");
  EXPECT_EQ(tidied(" Dijo que  sí , y nada  más . "), "Dijo que sí, y nada más.");
}

TEST(UnknownWordsTest, AreKeptFromTheNextModeAndQuotedAtTheEnd) {
  UnknownWords unknown;
  const std::string hidden = unknown.hide("El *frobnicator *come mi #canal y d'*zyzzyva, @son.");
  EXPECT_EQ(hidden.find("frobnicator"), std::string::npos);
  EXPECT_EQ(hidden.find('#'), std::string::npos);
  EXPECT_EQ(unknown.known, 4U);
  EXPECT_EQ(unknown.show(hidden), "El “frobnicator come” mi canal y d'“zyzzyva”, “son”.");

  // The second mode marks the place-holders, and a word of the first one's language.
  std::string second = "O *paraguas";
  for (const std::string& word :
       wordsOf(hidden).size() > 2 ? std::vector{wordsOf(hidden)[1]} : std::vector<std::string>())
    second += " *" + word;
  EXPECT_EQ(unknown.show(unknown.hide(second)), "O “paraguas frobnicator”");
  EXPECT_EQ(unknown.known, 1U);
}

TEST(StreamProtocolTest, ReadsTheQueryOfARun) {
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

TEST(StreamProtocolTest, KnowsTheStopFrameAmongOthers) {
  EXPECT_TRUE(isStopFrame(R"({"type":"stop"})"));
  EXPECT_TRUE(isStopFrame(R"( { "type" : "stop", "more" : 1 } )"));
  for (const char* other : {"", "stop", "[]", R"({"type":1})", R"({"type":"Stop"})", "{", "\xff\xfe"})
    EXPECT_FALSE(isStopFrame(other)) << other;
}

TEST(StreamProtocolTest, RefusalsNameTheLanguageInBothLanguages) {
  const std::string text = refusal::cannotTranslate("ja", {"es", "ca"});
  for (const char* part : {"日语", "Japanese", "西班牙语、加泰罗尼亚语", "Spanish, Catalan"})
    EXPECT_NE(text.find(part), std::string::npos) << text;
  EXPECT_NE(refusal::cannotHear("ja").find("日语"), std::string::npos);
  // What is not a code is not repeated.
  EXPECT_EQ(refusal::cannotHear("<script>").find("script"), std::string::npos);
  EXPECT_EQ(languageName("").english, "this language");
}

TEST(StreamProtocolTest, FramesAreJSONWhateverTheText) {
  const auto frame =
      boost::json::parse(captionFrame(CaptionKind::translation, "a \"b\"\n", " c", true)).as_object();
  EXPECT_EQ(frame.at("type").as_string(), "tr");
  EXPECT_EQ(frame.at("text").as_string(), "a \"b\"\n");
  EXPECT_TRUE(frame.at("final").as_bool());
}

TEST(OptionsTest, ReadsTheCommandLineOrSaysWhatIsWrong) {
  const Options options = parseOptions({"--port", "0", "--state", "/tmp/x"});
  EXPECT_EQ(options.port, 0);
  EXPECT_EQ(options.stateDirectory, "/tmp/x");
  EXPECT_EQ(parseOptions({"--help"}).action, Options::Action::help);
  EXPECT_THROW(parseOptions({"--port"}), OptionError);
  EXPECT_THROW(parseOptions({"--port", "70000"}), OptionError);
  EXPECT_THROW(parseOptions({"--port", "1x"}), OptionError);
  EXPECT_THROW(parseOptions({"--verbose"}), OptionError);
}

} // namespace
} // namespace tolvera::service

#include "TolveraService/Engine/WhisperText.h"

#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/SpeechEngine.h"

#include <algorithm>
#include <array>
#include <vector>

namespace tolvera::service {

namespace {

constexpr float certainEnough = -1.3F;
constexpr float certainForSilence = -1;
constexpr float probablySilent = 0.6F;
constexpr float perhapsSilent = 0.2F;
constexpr std::size_t shortSpeech = SpeechEngine::sampleRate * 2 / 5;
constexpr std::size_t longestLoop = 8; // words
constexpr std::size_t loopsAllowed = 3;

constexpr std::array<std::string_view, 8> inventions = {"thank you",
                                                        "thank you very much",
                                                        "thanks for watching",
                                                        "thank you for watching",
                                                        "you",
                                                        "bye",
                                                        "please subscribe",
                                                        "subtitles by the amara.org community"};

bool isInvention(std::string_view words) {
  const std::string bare = bareWord(words);
  return std::find(inventions.begin(), inventions.end(), bare) != inventions.end();
}

bool isDescription(std::string_view words) {
  const bool square = words.starts_with('[') && words.ends_with(']');
  return square || (words.starts_with('(') && words.ends_with(')')) || words.find("\u266a") != words.npos;
}

// True if some words come again and again at the end.
bool isLoop(std::string_view text) {
  std::vector<std::string> words = wordsOf(text);
  for (std::string& word : words) word = bareWord(word);
  for (std::size_t length = 1; length <= longestLoop; ++length) {
    std::size_t same = 0;
    while (words.size() > length + same &&
           words[words.size() - 1 - same] == words[words.size() - 1 - same - length])
      ++same;
    if (same >= length * loopsAllowed) return true;
  }
  return false;
}

} // namespace

bool isPlausible(const WhisperDecoder::Text& text, std::size_t spoken) {
  if (bareWord(text.words).empty() || isDescription(text.words) || isLoop(text.words)) return false;
  if (text.certainty < certainEnough) return false;
  if (text.silence > probablySilent && text.certainty < certainForSilence) return false;
  return !isInvention(text.words) || (spoken >= shortSpeech && text.silence < perhapsSilent);
}

} // namespace tolvera::service

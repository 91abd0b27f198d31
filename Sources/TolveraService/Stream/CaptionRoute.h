#pragma once

#include "TolveraService/Engine/SpeechEngine.h"
#include "TolveraService/Engine/Translator.h"

#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// How captions in the wanted language come about.
enum class CaptionRoute {
  none,         // nothing here can translate that
  asHeard,      // it is the language that is spoken
  byEngine,     // the speech engine translates
  byTranslator, // the translator does
  byBoth,       // the speech engine first, and the translator goes on from there
};

// Pure but for asking the two what they can do.
CaptionRoute captionRoute(std::string_view spoken, std::string_view target, const SpeechEngine& engine,
                          const Translator& translator);

// The codes of all languages that somebody who speaks `spoken` can be read in, that one excepted.
std::vector<std::string> captionLanguages(std::string_view spoken, const SpeechEngine& engine,
                                          const Translator& translator);

} // namespace tolvera::service

#pragma once

#include "TolveraService/Engine/WhisperModel.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace tolvera::service {

// False for what Whisper writes although it was not said: words in a loop, words that it took from subtitles
// of films ("Thank you."), descriptions of sound ("[Music]"). `spoken`: samples of speech. Pure.
bool isPlausible(const WhisperDecoder::Text& text, std::size_t spoken);

} // namespace tolvera::service

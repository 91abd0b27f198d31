#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// Speaks sentences in eight voices, in the languages whose data is installed. Owned by the server. The
// synthesiser's state is one for the process: all objects share it. Any thread may call; calls that speak are
// served one at a time and block for some milliseconds a sentence.
class Speech {
 public:
  static constexpr std::size_t sampleRate = 24000;

  // Starts the synthesiser unless it runs already. Where its data is not installed, no language can be
  // spoken.
  Speech();

  // Codes of the voices; none if there is no language to speak.
  [[nodiscard]] std::vector<std::string> voices() const;
  [[nodiscard]] bool canSpeak(std::string_view language) const;

  // Mono samples of the text in the voice, with the pause that parts it from what follows. A voice that is
  // not known is the first one. Empty for a language that cannot be spoken, a text without sound, or a fault
  // of the synthesiser: there is never the sound of another language or voice instead.
  [[nodiscard]] std::vector<std::int16_t> say(std::string_view language, std::string_view voice,
                                              std::string_view text) const;
};

} // namespace tolvera::service

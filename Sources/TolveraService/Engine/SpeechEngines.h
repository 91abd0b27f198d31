#pragma once

#include "TolveraService/Engine/SpeechEngine.h"
#include "TolveraService/Transfer/ServerClient.h"

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace tolvera::service {

struct EngineChoice {
  std::string name;                        // "whisper", "pocketsphinx"; empty: the best that works here
  std::size_t runs = 0;                    // 0: as many as the machine carries
  std::optional<ServerChoice> server = {}; // hears instead
};

// Makes the engine. Without a server or a name that is Whisper if a model is installed and as published, else
// PocketSphinx. Throws std::runtime_error, with a text for the person who starts the service, if it cannot be
// had.
std::unique_ptr<SpeechEngine> makeSpeechEngine(const EngineChoice& choice);

} // namespace tolvera::service

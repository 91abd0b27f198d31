#pragma once

#include "TolveraService/Engine/SpeechEngine.h"
#include "TolveraService/Models/ModelCatalogue.h"
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
// PocketSphinx; where that is not installed either, but a model can be, it is an engine that hears nothing.
// Throws std::runtime_error, with a text for the person who starts the service, if it cannot be had.
std::unique_ptr<SpeechEngine> makeSpeechEngine(const EngineChoice& choice);

// How many runs Whisper serves at once on this machine, if its model is there.
std::size_t runsOfWhisper(const EngineChoice& choice);

// The model to install so that people are understood; absent if one is installed, if another engine was
// chosen, or if no model would serve. Reads the disk.
std::optional<Model> missingModel(const EngineChoice& choice);

} // namespace tolvera::service

#include "TolveraService/Engine/SpeechEngines.h"

#include "TolveraService/Engine/PocketSphinxEngine.h"
#include "TolveraService/Engine/SilentEngine.h"

#include "Async/Log.h"

#include <algorithm>
#include <stdexcept>
#include <thread>

#ifdef TOLVERA_WHISPER
#include "TolveraService/Engine/TranscriptionServer.h"
#include "TolveraService/Engine/WhisperEngine.h"
#include "TolveraService/Models/ModelStore.h"

#include <cstdio>
#include <vector>
#endif

namespace tolvera::service {

namespace {

constexpr std::size_t fewestRuns = 2;
#ifdef TOLVERA_WHISPER
constexpr std::size_t runsOfAServer = 16; // a run costs little here
#endif

struct Found {
  std::unique_ptr<SpeechEngine> engine;
  std::string reason; // why there is none
};

#ifdef TOLVERA_WHISPER
// The file of an installed model that is as published. A broken one is told of.
std::filesystem::path soundFile(const Model& model) {
  const auto path = ModelStore::find(model);
  if (!path) return {};
  const auto fault = ModelStore::fault(model, *path);
  if (!fault) return *path;
  std::fprintf(stderr, "tolvera-service: %s\n", fault->c_str());
  return {};
}

bool isGate(const Model& model) { return model.name.starts_with("silero"); }

std::filesystem::path soundGate(const std::vector<Model>& catalogue) {
  const auto gate = std::find_if(catalogue.begin(), catalogue.end(), isGate);
  return gate == catalogue.end() ? std::filesystem::path() : soundFile(*gate);
}

std::unique_ptr<SpeechEngine> makeServer(const ServerChoice& choice, std::size_t runs) {
  std::filesystem::path gate = soundGate(loadModelCatalogue());
  if (gate.empty())
    throw std::runtime_error("The model that finds speech is missing: tolvera-service models install "
                             "silero-v6.2.0.");
  return std::make_unique<TranscriptionServer>(choice, std::move(gate), runs > 0 ? runs : runsOfAServer);
}

Found findWhisper(const EngineChoice& choice) {
  if (!WhisperEngine::processorServes()) return {nullptr, "the processor is too old for it"};
  const std::vector<Model> catalogue = loadModelCatalogue();
  WhisperEngine::Settings settings;
  settings.gate = soundGate(catalogue);
  for (const Model& model : catalogue) { // the first is the default
    if (isGate(model)) continue;
    settings.weights = soundFile(model);
    settings.model = model.name;
    if (!settings.weights.empty()) break;
  }
  if (settings.weights.empty()) return {nullptr, "no model is installed"};
  if (settings.gate.empty()) return {nullptr, "the model that finds speech is not installed"};
  settings.runs = runsOfWhisper(choice);
  return {std::make_unique<WhisperEngine>(std::move(settings)), {}};
}
#else
std::unique_ptr<SpeechEngine> makeServer(const ServerChoice&, std::size_t) {
  throw std::runtime_error("The service was built without whisper.cpp, which finds the speech to send.");
}

Found findWhisper(const EngineChoice&) { return {nullptr, "the service was built without it"}; }
#endif

} // namespace

std::unique_ptr<SpeechEngine> makeSpeechEngine(const EngineChoice& choice) {
  if (choice.server) return makeServer(*choice.server, choice.runs);
  if (choice.name != "pocketsphinx") {
    Found whisper = findWhisper(choice);
    if (whisper.engine) {
      log::trace(log::Category::service, "speech is heard by ", whisper.engine->name(), ", ",
                 whisper.engine->runs(), " runs at once");
      return std::move(whisper.engine);
    }
    if (choice.name == "whisper") throw std::runtime_error("Whisper cannot be used: " + whisper.reason + ".");
    log::warn(log::Category::service, "Whisper is not used: ", whisper.reason);
  }
  try {
    auto engine = std::make_unique<PocketSphinxEngine>(choice.runs > 0 ? choice.runs : fewestRuns);
    log::trace(log::Category::service, "speech is heard by PocketSphinx, English only");
    return engine;
  } catch (const std::runtime_error& error) {
    if (!missingModel(choice)) throw;
    log::warn(log::Category::service, error.what());
    return std::make_unique<SilentEngine>();
  }
}

std::size_t runsOfWhisper(const EngineChoice& choice) {
  return choice.runs > 0 ? choice.runs
                         : std::max<std::size_t>(fewestRuns, std::thread::hardware_concurrency());
}

std::optional<Model> missingModel([[maybe_unused]] const EngineChoice& choice) {
#ifdef TOLVERA_WHISPER
  if (choice.server || !choice.name.empty() || !WhisperEngine::processorServes()) return std::nullopt;
  std::optional<Model> first; // the default
  bool hasGate = false;
  for (const Model& model : loadModelCatalogue()) {
    const bool sound = ModelStore::isInstalled(model);
    if (isGate(model)) {
      hasGate = hasGate || sound;
    } else if (sound) {
      return std::nullopt;
    } else if (!first && !model.address.empty()) {
      first = model;
    }
  }
  if (hasGate) return first;
#endif
  return std::nullopt;
}

} // namespace tolvera::service

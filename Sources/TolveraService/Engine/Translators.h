#pragma once

#include "TolveraService/Engine/Translator.h"
#include "TolveraService/Transfer/ServerClient.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace tolvera::service {

// A translation server, as the command line tells of it.
struct TranslatorChoice {
  std::string interface; // "libretranslate" or "openai"
  ServerChoice server;
};

// Makes the server's translator, if there is one, with Apertium for the pairs that the server does not offer.
// Throws std::runtime_error, with a text for the person who starts the service, if it cannot be had.
std::unique_ptr<Translator> makeTranslator(const std::optional<TranslatorChoice>& choice,
                                           const std::filesystem::path& apertiumModes);

} // namespace tolvera::service

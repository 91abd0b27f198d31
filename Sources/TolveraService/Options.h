#pragma once

#include "TolveraService/Engine/SpeechEngines.h"
#include "TolveraService/Engine/Translators.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// The command line of `tolvera-service`.
struct Options {
  static constexpr std::uint16_t defaultPort = 18790;

  enum class Action { serve, help, version };
  Action action = Action::serve;
  std::optional<std::uint16_t> port; // absent: the usual one, or the next that is free
  std::filesystem::path stateDirectory;
  EngineChoice engine;
  bool servesAllUsers = false; // of this machine, not the service's own alone
  std::optional<TranslatorChoice> translator;

  static const char* usage();
};

// What is wrong with a command line.
struct OptionError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// `arguments` without the program's name. Throws OptionError.
Options parseOptions(const std::vector<std::string_view>& arguments);

} // namespace tolvera::service

#include "TolveraService/Options.h"

#include <charconv>
#include <cstdlib>

namespace tolvera::service {

namespace {

constexpr std::size_t mostStreams = 64;

std::uint16_t portOf(std::string_view text) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size())
    throw OptionError("not a port: " + std::string(text));
  return port;
}

std::size_t streamsOf(std::string_view text) {
  std::size_t streams = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), streams);
  if (error != std::errc() || end != text.data() + text.size() || streams < 1 || streams > mostStreams)
    throw OptionError("not a number of runs: " + std::string(text));
  return streams;
}

std::string engineOf(std::string_view text) {
  if (text != "whisper" && text != "pocketsphinx")
    throw OptionError("no engine is called " + std::string(text) + ": whisper, pocketsphinx");
  return std::string(text);
}

// "libretranslate=http://127.0.0.1:5000" or "openai=http://127.0.0.1:8080/v1"
void readTranslator(std::string_view text, TranslatorChoice& choice) {
  const std::size_t equals = text.find('=');
  choice.interface = text.substr(0, equals);
  const bool known = choice.interface == "libretranslate" || choice.interface == "openai";
  if (!known || equals == std::string_view::npos)
    throw OptionError("a translator is libretranslate=ADDRESS or openai=ADDRESS");
  choice.server.address = text.substr(equals + 1);
}

void checkRecogniser(const EngineChoice& choice) {
  if (choice.server->address.empty()) throw OptionError("--recogniser is missing");
  if (choice.server->model.empty()) throw OptionError("--recogniser needs --recogniser-model");
  if (!choice.name.empty()) throw OptionError("--recogniser hears instead of an --engine");
}

void checkTranslator(const TranslatorChoice& choice) {
  if (choice.interface.empty()) throw OptionError("--translator is missing");
  if ((choice.interface == "openai") == choice.server.model.empty())
    throw OptionError("--translator-model names the model of openai, and of openai alone");
}

std::filesystem::path defaultStateDirectory() {
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && state[0] == '/') return std::filesystem::path(state) / "tolvera";
  const char* home = std::getenv("HOME");
  if (home == nullptr || home[0] != '/')
    throw OptionError("no home directory: say where to keep accounts with --state");
  return std::filesystem::path(home) / ".local/state/tolvera";
}

} // namespace

const char* Options::usage() {
  return R"(usage: tolvera-service [--port N] [--state DIR] [--streams N] [--all-users] [--help] [--version]
                       [--engine NAME | --recogniser ADDRESS --recogniser-model NAME]
                       [--translator libretranslate=ADDRESS | --translator openai=ADDRESS --translator-model NAME]
                       [--recogniser-key FILE] [--translator-key FILE]
       tolvera-service models list | install NAME | verify [NAME] | remove NAME
  --port N     listen on 127.0.0.1:N and nowhere else; 0 takes any free port. Without it the port is 18790 or
               the next free one, and is written to $XDG_RUNTIME_DIR/tolvera/service
  --state DIR  keep accounts in DIR ($XDG_STATE_HOME/tolvera)
  --streams N  serve at most N runs at once, 1 to 64; without it, as many as this machine carries
  --engine NAME  hear with whisper or pocketsphinx; without it, with the best that is installed
  --all-users  serve every user of this machine, and not the one who started the service alone
Servers, over https unless they run on this machine. Speech and text are sent to them:
  --recogniser ADDRESS  hear with an OpenAI-compatible server, such as http://127.0.0.1:8080/v1
  --translator NAME=ADDRESS  translate by libretranslate=http://127.0.0.1:5000, or by an OpenAI-compatible
               server, openai=http://127.0.0.1:8080/v1
  --recogniser-key FILE, --translator-key FILE  the server's key, in a file that you alone can read
)";
}

Options parseOptions(const std::vector<std::string_view>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view argument = arguments[i];
    const auto value = [&]() -> std::string_view {
      if (i + 1 >= arguments.size()) throw OptionError(std::string(argument) + " needs a value");
      return arguments[++i];
    };
    const auto recogniser = [&]() -> ServerChoice& {
      return options.engine.server ? *options.engine.server : options.engine.server.emplace();
    };
    const auto translator = [&]() -> TranslatorChoice& {
      return options.translator ? *options.translator : options.translator.emplace();
    };
    if (argument == "--port") {
      options.port = portOf(value());
    } else if (argument == "--state") {
      options.stateDirectory = std::filesystem::absolute(value());
    } else if (argument == "--engine") {
      options.engine.name = engineOf(value());
    } else if (argument == "--streams") {
      options.engine.runs = streamsOf(value());
    } else if (argument == "--all-users") {
      options.servesAllUsers = true;
    } else if (argument == "--recogniser") {
      recogniser().address = value();
    } else if (argument == "--recogniser-model") {
      recogniser().model = value();
    } else if (argument == "--recogniser-key") {
      recogniser().keyFile = std::filesystem::absolute(value());
    } else if (argument == "--translator") {
      readTranslator(value(), translator());
    } else if (argument == "--translator-model") {
      translator().server.model = value();
    } else if (argument == "--translator-key") {
      translator().server.keyFile = std::filesystem::absolute(value());
    } else if (argument == "--help") {
      options.action = Options::Action::help;
      return options;
    } else if (argument == "--version") {
      options.action = Options::Action::version;
      return options;
    } else {
      throw OptionError("unknown option: " + std::string(argument));
    }
  }
  if (options.engine.server) checkRecogniser(options.engine);
  if (options.translator) checkTranslator(*options.translator);
  if (options.stateDirectory.empty()) options.stateDirectory = defaultStateDirectory();
  return options;
}

} // namespace tolvera::service

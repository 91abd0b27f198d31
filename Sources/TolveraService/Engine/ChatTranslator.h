#pragma once

#include "TolveraService/Engine/ServerTranslator.h"

#include <string>

namespace tolvera::service {

// Translates by a language model behind an OpenAI-compatible interface (POST …/chat/completions): Ollama,
// llama.cpp, vLLM, LM Studio. It is taken to know all of the program's languages.
class ChatTranslator : public ServerTranslator {
 public:
  explicit ChatTranslator(const ServerChoice& choice) : ServerTranslator(choice), model_(choice.model) {}

  [[nodiscard]] std::vector<std::string> targets(std::string_view source) const override;
  [[nodiscard]] bool canTranslate(std::string_view source, std::string_view target) const override;

 protected:
  std::string ask(std::string_view source, std::string_view target, std::string_view line,
                  const ServerClient::Limit& limit) override;

 private:
  const std::string model_;
};

} // namespace tolvera::service

#include "TolveraService/Engine/Translators.h"

#include "TolveraService/Engine/ApertiumTranslator.h"
#include "TolveraService/Engine/ChatTranslator.h"
#include "TolveraService/Engine/LibreTranslator.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tolvera::service {

namespace {

// Two translators as one: the second does what the first does not offer.
class TranslatorPair : public Translator {
 public:
  TranslatorPair(std::unique_ptr<Translator> first, std::unique_ptr<Translator> second)
      : both_{std::move(first), std::move(second)} {}

  [[nodiscard]] std::vector<std::string> targets(std::string_view source) const override {
    std::vector<std::string> codes = both_[0]->targets(source);
    for (std::string& code : both_[1]->targets(source))
      if (std::find(codes.begin(), codes.end(), code) == codes.end()) codes.push_back(std::move(code));
    return codes;
  }
  [[nodiscard]] bool canTranslate(std::string_view source, std::string_view target) const override {
    return one(source, target).canTranslate(source, target);
  }
  [[nodiscard]] std::string sendsTo() const override { return both_[0]->sendsTo(); }
  [[nodiscard]] std::string silentServer() const override { return both_[0]->silentServer(); }
  void warmUp(std::string_view source, std::string_view target, const Abandoned& abandoned) override {
    one(source, target).warmUp(source, target, abandoned);
  }
  Result translate(std::string_view source, std::string_view target, std::string_view line,
                   const Abandoned& abandoned) override {
    return one(source, target).translate(source, target, line, abandoned);
  }

 private:
  [[nodiscard]] Translator& one(std::string_view source, std::string_view target) const {
    return *both_[both_[0]->canTranslate(source, target) ? 0 : 1];
  }

  std::array<std::unique_ptr<Translator>, 2> both_;
};

} // namespace

std::unique_ptr<Translator> makeTranslator(const std::optional<TranslatorChoice>& choice,
                                           const std::filesystem::path& apertiumModes) {
  auto apertium = std::make_unique<ApertiumTranslator>(apertiumModes);
  if (!choice) return apertium;
  std::unique_ptr<Translator> server;
  if (choice->interface == "libretranslate")
    server = std::make_unique<LibreTranslator>(choice->server);
  else
    server = std::make_unique<ChatTranslator>(choice->server);
  return std::make_unique<TranslatorPair>(std::move(server), std::move(apertium));
}

} // namespace tolvera::service

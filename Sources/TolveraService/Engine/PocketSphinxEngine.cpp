#include "TolveraService/Engine/PocketSphinxEngine.h"

#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/TextNormalizer.h"

#include <algorithm>
#include <utility>

namespace tolvera::service {

namespace {

constexpr const char* language = "en";

class PocketSphinxListener : public Listener {
 public:
  explicit PocketSphinxListener(std::unique_ptr<RecognizerPool::Lease> recognizer)
      : recognizer_(std::move(recognizer)) {}

  void begin(Request request) override {
    request_ = std::move(request);
    (*recognizer_)->begin();
  }

  void hear(std::span<const std::int16_t> samples) override {
    while (!samples.empty() && !request_.abandoned()) {
      const std::size_t count = std::min(samples.size(), Recognizer::samplesPerLook);
      tell((*recognizer_)->hear(samples.first(count)));
      samples = samples.subspan(count);
    }
  }

  void finish() override {
    if ((*recognizer_)->inUtterance()) tell((*recognizer_)->finish());
  }

  void spoil() noexcept override { recognizer_->spoil(); }

 private:
  void tell(const Recognizer::Look& look) {
    Heard heard{language, {}, {}, {}, look.final};
    if (look.final) {
      heard.settled = sentence(look.words);
      line_ = SettledText(PocketSphinxEngine::looksToSettle);
    } else if (!look.words.empty()) {
      SettledText::Split split = line_.update(capitalized(look.words));
      heard.settled = std::move(split.text);
      heard.tail = std::move(split.stash);
    } else {
      return;
    }
    request_.report(heard);
  }

  std::unique_ptr<RecognizerPool::Lease> recognizer_;
  Request request_;
  SettledText line_{PocketSphinxEngine::looksToSettle};
};

} // namespace

std::vector<std::string> PocketSphinxEngine::languages() const { return {language}; }

std::unique_ptr<Listener> PocketSphinxEngine::listener() {
  auto lease = pool_.lease();
  if (!lease) return nullptr;
  return std::make_unique<PocketSphinxListener>(std::move(lease));
}

} // namespace tolvera::service

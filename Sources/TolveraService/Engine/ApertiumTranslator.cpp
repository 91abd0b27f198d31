#include "TolveraService/Engine/ApertiumTranslator.h"

#include "TolveraService/Engine/TextNormalizer.h"
#include "TolveraService/Engine/UnknownWords.h"

#include <array>
#include <map>
#include <stdexcept>

namespace tolvera::service {

namespace {

struct Offer {
  std::string_view target;
  std::string_view first;
  std::string_view second; // empty for a direct mode
};

constexpr std::string_view sourceLanguage = "en";

constexpr std::array<Offer, 7> offers = {{{"es", "eng-spa", ""},
                                          {"ca", "eng-cat", ""},
                                          {"pt", "eng-spa", "es-pt"},
                                          {"fr", "eng-spa", "es-fr"},
                                          {"it", "eng-spa", "spa-ita"},
                                          {"gl", "eng-spa", "es-gl"},
                                          {"ast", "eng-spa", "spa-ast"}}};

} // namespace

ApertiumTranslator::ApertiumTranslator(const std::filesystem::path& modes) {
  std::map<std::string_view, std::shared_ptr<ApertiumPipeline>> pipelines;
  const auto pipeline = [&](std::string_view mode) {
    std::shared_ptr<ApertiumPipeline>& known = pipelines[mode];
    if (!known) known = std::make_shared<ApertiumPipeline>(loadApertiumMode(modes, mode));
    return known;
  };
  for (const Offer& offer : offers) {
    try {
      Route route{pipeline(offer.first)};
      if (!offer.second.empty()) route.push_back(pipeline(offer.second));
      routes_.emplace_back(offer.target, std::move(route));
    } catch (const std::runtime_error&) {
      // Its data is not installed: the language is not offered.
    }
  }
}

std::vector<std::string> ApertiumTranslator::targets(std::string_view source) const {
  std::vector<std::string> codes;
  if (source == sourceLanguage)
    for (const auto& [target, route] : routes_) codes.push_back(target);
  return codes;
}

const ApertiumTranslator::Route* ApertiumTranslator::route(std::string_view source,
                                                           std::string_view target) const {
  if (source != sourceLanguage) return nullptr;
  for (const auto& [code, route] : routes_)
    if (code == target) return &route;
  return nullptr;
}

bool ApertiumTranslator::canTranslate(std::string_view source, std::string_view target) const {
  return route(source, target) != nullptr;
}

void ApertiumTranslator::warmUp(std::string_view source, std::string_view target,
                                const Abandoned& abandoned) {
  // The first lines of a mode are slow beyond its start: data is read when it is first needed.
  translate(source, target, "The people of the town will see that I have been there on Monday", abandoned);
}

Translator::Result ApertiumTranslator::translate(std::string_view source, std::string_view target,
                                                 std::string_view line, const Abandoned& /*abandoned*/) {
  const Route* pipelines = route(source, target);
  if (pipelines == nullptr) return {Result::Kind::failed, "Apertium does not offer these languages"};
  // A pipeline ends each line with a full stop of its own.
  const bool stopped = line.ends_with('.');
  while (line.ends_with('.')) line.remove_suffix(1);
  UnknownWords unknown;
  std::string text(line);
  for (const auto& pipeline : *pipelines) {
    const auto marked = pipeline->translate(text);
    if (!marked) return {Result::Kind::failed, "Apertium does not work"};
    text = unknown.hide(*marked);
    if (unknown.known == 0) return {Result::Kind::nothingKnown, {}};
  }
  return {Result::Kind::translated, tidied(unknown.show(text)) + (stopped ? "." : "")};
}

} // namespace tolvera::service

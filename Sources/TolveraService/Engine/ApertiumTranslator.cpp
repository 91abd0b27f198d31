#include "TolveraService/Engine/ApertiumTranslator.h"

#include "TolveraService/Engine/TextNormalizer.h"
#include "TolveraService/Engine/UnknownWords.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace tolvera::service {

namespace {

struct Mode {
  std::string_view source;
  std::string_view target;
  std::string_view name;
};

constexpr std::array<Mode, 11> modes = {{{"en", "es", "eng-spa"},
                                         {"en", "ca", "eng-cat"},
                                         {"es", "pt", "es-pt"},
                                         {"es", "fr", "es-fr"},
                                         {"es", "it", "spa-ita"},
                                         {"es", "gl", "es-gl"},
                                         {"es", "ast", "spa-ast"},
                                         {"pt", "es", "pt-es"},
                                         {"fr", "es", "fr-es"},
                                         {"it", "es", "ita-spa"},
                                         {"gl", "es", "gl-es"}}};

} // namespace

ApertiumTranslator::ApertiumTranslator(const std::filesystem::path& directory) {
  for (const Mode& mode : modes) {
    try {
      pairs_.push_back({std::string(mode.source), std::string(mode.target),
                        std::make_shared<ApertiumPipeline>(loadApertiumMode(directory, mode.name))});
    } catch (const std::runtime_error&) {
      // Its data is not installed: the pair is not offered.
    }
  }
}

std::vector<std::string> ApertiumTranslator::targets(std::string_view source) const {
  std::vector<std::string> direct;
  std::vector<std::string> indirect;
  for (const Pair& pair : pairs_) {
    const std::size_t steps = route(source, pair.target).size();
    std::vector<std::string>& codes = steps == 1 ? direct : indirect;
    if (steps > 0 && std::find(codes.begin(), codes.end(), pair.target) == codes.end())
      codes.push_back(pair.target);
  }
  direct.insert(direct.end(), indirect.begin(), indirect.end());
  return direct;
}

ApertiumTranslator::Route ApertiumTranslator::route(std::string_view source, std::string_view target) const {
  if (source == target) return {};
  const auto find = [this](std::string_view from, std::string_view to) {
    return std::find_if(pairs_.begin(), pairs_.end(),
                        [&](const Pair& pair) { return pair.source == from && pair.target == to; });
  };
  if (const auto direct = find(source, target); direct != pairs_.end()) return {direct->pipeline};
  for (const Pair& first : pairs_)
    if (first.source == source)
      if (const auto second = find(first.target, target); second != pairs_.end())
        return {first.pipeline, second->pipeline};
  return {};
}

bool ApertiumTranslator::canTranslate(std::string_view source, std::string_view target) const {
  return !route(source, target).empty();
}

void ApertiumTranslator::warmUp(std::string_view source, std::string_view target,
                                const Abandoned& /*abandoned*/) {
  // The first lines of a mode are slow beyond its start: data is read when it is first needed.
  for (const auto& pipeline : route(source, target))
    pipeline->translate("The people of the town will see that I have been there on Monday");
}

Translator::Result ApertiumTranslator::translate(std::string_view source, std::string_view target,
                                                 std::string_view line, const Abandoned& /*abandoned*/) {
  const Route pipelines = route(source, target);
  if (pipelines.empty()) return {Result::Kind::failed, "Apertium does not offer these languages"};
  // A pipeline ends each line with a full stop of its own.
  const bool stopped = line.ends_with('.');
  while (line.ends_with('.')) line.remove_suffix(1);
  UnknownWords unknown;
  std::string text(line);
  for (const auto& pipeline : pipelines) {
    const auto marked = pipeline->translate(text);
    if (!marked) return {Result::Kind::failed, "Apertium does not work"};
    text = unknown.hide(*marked);
    if (unknown.known == 0) return {Result::Kind::nothingKnown, {}};
  }
  return {Result::Kind::translated, tidied(unknown.show(text)) + (stopped ? "." : "")};
}

} // namespace tolvera::service

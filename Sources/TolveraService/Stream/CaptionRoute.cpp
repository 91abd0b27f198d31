#include "TolveraService/Stream/CaptionRoute.h"

#include <algorithm>

namespace tolvera::service {

CaptionRoute captionRoute(std::string_view spoken, std::string_view target, const SpeechEngine& engine,
                          const Translator& translator) {
  if (spoken == target) return CaptionRoute::asHeard;
  const std::string between = engine.translatesInto();
  if (translator.canTranslate(spoken, target)) return CaptionRoute::byTranslator;
  if (!between.empty() && target == between) return CaptionRoute::byEngine;
  if (!between.empty() && translator.canTranslate(between, target)) return CaptionRoute::byBoth;
  return CaptionRoute::none;
}

std::vector<std::string> captionLanguages(std::string_view spoken, const SpeechEngine& engine,
                                          const Translator& translator) {
  std::vector<std::string> codes = translator.targets(spoken);
  const std::string between = engine.translatesInto();
  if (between.empty() || between == spoken) return codes;
  for (const std::string& code : translator.targets(between))
    if (code != spoken && std::find(codes.begin(), codes.end(), code) == codes.end()) codes.push_back(code);
  if (std::find(codes.begin(), codes.end(), between) == codes.end()) codes.insert(codes.begin(), between);
  return codes;
}

} // namespace tolvera::service

#include "TolveraService/Engine/ServerTranslator.h"

#include <chrono>
#include <utility>

namespace tolvera::service {

namespace {

constexpr std::chrono::seconds patience{10};
constexpr std::chrono::seconds patienceAtFirst{60};
// Bytes. Some scripts take three bytes a letter, and short lines may grow most.
constexpr std::size_t growth = 6;
constexpr std::size_t grownAtLeast = 200;

} // namespace

void ServerTranslator::warmUp(std::string_view source, std::string_view target, const Abandoned& abandoned) {
  try {
    ask(source, target, "OK.", {patienceAtFirst, abandoned});
  } catch (const ServerFailure&) {
    // The first line of the run tells it.
  }
}

Translator::Result ServerTranslator::translate(std::string_view source, std::string_view target,
                                               std::string_view line, const Abandoned& abandoned) {
  const auto failed = [this](const std::string& why) {
    return Result{Result::Kind::failed, client_.address() + ": " + why};
  };
  try {
    std::string text = ask(source, target, line, {patience, abandoned});
    if (text.empty()) return failed("its translation is empty");
    if (text.size() > grownAtLeast + growth * line.size()) return failed("its translation is too long");
    return {Result::Kind::translated, std::move(text)};
  } catch (const ServerFailure& failure) {
    return failed(failure.what());
  }
}

} // namespace tolvera::service

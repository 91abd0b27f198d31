#include "TolveraService/Engine/ServerTranslator.h"

#include <boost/json/value.hpp>

#include <algorithm>

namespace tolvera::service {

namespace {

constexpr std::chrono::seconds patience{10};
constexpr std::chrono::seconds patienceAtFirst{60};
// Bytes. Some scripts take three bytes a letter, and short lines may grow most.
constexpr std::size_t growth = 6;
constexpr std::size_t grownAtLeast = 200;

// An answer as a caption shows it: on one line, without control characters.
std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(),
      [](char letter) { return static_cast<unsigned char>(letter) < ' ' || letter == 0x7F; }, ' ');
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

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
    std::string text = oneLine(ask(source, target, line, {patience, abandoned}));
    if (text.empty()) return failed("its translation is empty");
    if (text.size() > grownAtLeast + growth * line.size()) return failed("its translation is too long");
    return {Result::Kind::translated, std::move(text)};
  } catch (const ServerFailure& failure) {
    return failed(failure.what());
  }
}

std::string textAt(const boost::json::value& answer, std::string_view pointer) {
  boost::system::error_code error;
  const boost::json::value* value = answer.find_pointer(pointer, error);
  if (value == nullptr || !value->is_string()) throw ServerFailure("its answer holds no text");
  return std::string(value->get_string());
}

} // namespace tolvera::service

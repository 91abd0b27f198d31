#include "TolveraService/Engine/LibreTranslator.h"

#include "TolveraService/Engine/BilingualLanguageNames.h"

#include "Async/Log.h"

#include <boost/json/value.hpp>

#include <algorithm>
#include <array>
#include <set>
#include <utility>

namespace tolvera::service {

namespace json = boost::json;

namespace {

constexpr std::chrono::seconds patience{5};
constexpr std::chrono::seconds untilAnswered{5};
constexpr std::chrono::minutes untilChanged{10};

// Versions of the server differ in how they call some languages.
constexpr std::array<std::pair<std::string_view, std::string_view>, 4> otherNames = {
    {{"zh-Hans", "zh"}, {"zh-CN", "zh"}, {"no", "nb"}, {"tl", "fil"}}};

std::string programCode(std::string_view name) {
  const auto* other = std::find_if(otherNames.begin(), otherNames.end(),
                                   [name](const auto& pair) { return pair.first == name; });
  return std::string(other == otherNames.end() ? name : other->second);
}

} // namespace

LibreTranslator::LibreTranslator(const ServerChoice& choice) : ServerTranslator(choice) {
  learn({patience, {}});
  learning_ = std::jthread([this](const std::stop_token& stop) { learnAgain(stop); });
}

LibreTranslator::Offers LibreTranslator::offersIn(const json::value& languages) {
  const std::vector<std::string> codes = programLanguages();
  const std::set<std::string> known(codes.begin(), codes.end());
  Offers offers;
  if (!languages.is_array()) throw ServerFailure("its answer is no list of languages");
  for (const json::value& language : languages.get_array()) {
    const std::string name = textAt(language, "/code");
    const std::string code = programCode(name);
    if (!known.contains(code)) continue;
    Offer& offer = offers.emplace(code, Offer{name, {}}).first->second;
    boost::system::error_code error;
    const json::value* targets = language.find_pointer("/targets", error);
    if (targets == nullptr || !targets->is_array()) throw ServerFailure("it names no targets");
    for (const json::value& target : targets->get_array()) {
      const std::string targetName = textAt(target, "");
      const std::string targetCode = programCode(targetName);
      if (targetCode != code && known.contains(targetCode)) offer.targets.emplace(targetCode, targetName);
    }
  }
  return offers;
}

bool LibreTranslator::learn(const ServerClient::Limit& limit) {
  try {
    HTTPRequest request;
    request.address = "/languages";
    Offers offers = offersIn(client_.ask(std::move(request), limit));
    const std::scoped_lock lock(mutex_);
    offers_ = std::move(offers);
    log::trace(log::Category::service, client_.address(), " translates ", offers_.size(), " languages");
    return true;
  } catch (const ServerFailure& failure) {
    log::warn(log::Category::service, client_.address(),
              " does not tell what it translates: ", failure.what());
    return false;
  }
}

void LibreTranslator::learnAgain(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested()) {
    const auto pause = offers_.empty() ? std::chrono::seconds(untilAnswered) : untilChanged;
    ends_.wait_for(lock, stop, pause, [] { return false; });
    if (stop.stop_requested()) return;
    lock.unlock();
    learn({patience, [&stop] { return stop.stop_requested(); }});
    lock.lock();
  }
}

std::vector<std::string> LibreTranslator::targets(std::string_view source) const {
  const std::scoped_lock lock(mutex_);
  const auto offer = offers_.find(source);
  if (offer == offers_.end()) return {};
  std::vector<std::string> codes = programLanguages();
  std::erase_if(codes, [&](const std::string& code) { return !offer->second.targets.contains(code); });
  return codes;
}

bool LibreTranslator::canTranslate(std::string_view source, std::string_view target) const {
  const std::scoped_lock lock(mutex_);
  const auto offer = offers_.find(source);
  return offer != offers_.end() && offer->second.targets.contains(target);
}

std::string LibreTranslator::silentServer() const {
  const std::scoped_lock lock(mutex_);
  return offers_.empty() ? client_.address() : std::string();
}

std::string LibreTranslator::ask(std::string_view source, std::string_view target, std::string_view line,
                                 const ServerClient::Limit& limit) {
  json::object request{{"q", line}, {"format", "text"}};
  {
    const std::scoped_lock lock(mutex_);
    const auto offer = offers_.find(source);
    const bool known = offer != offers_.end() && offer->second.targets.contains(target);
    if (!known) throw ServerFailure("it does not offer these languages any more");
    request["source"] = offer->second.name;
    request["target"] = offer->second.targets.find(target)->second;
  }
  if (!client_.key().empty()) request["api_key"] = client_.key();
  return textAt(client_.post("/translate", request, {}, limit), "/translatedText");
}

} // namespace tolvera::service

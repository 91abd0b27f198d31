#include "Tolvera/Model/MachineCheck.h"

#include "Async/Log.h"
#include "Tolvera/Model/AppSettings.h"
#include "Tolvera/Model/TokenStore.h"
#include "TolveraCore/API.h"
#include "TolveraCore/AudioProcesses.h"

#include <boost/json.hpp>

#include <cmath>
#include <optional>
#include <utility>

namespace tolvera {

namespace {

namespace json = boost::json;

CheckedThing found(const char* name, const std::optional<std::string>& text, const char* cure) {
  return {name, text.has_value(), text.value_or(cure)};
}

CheckedThing applications(const platform::Platform& platform) {
  std::string names;
  for (const AudioApp& app :
       AudioProcesses::userApps(platform.audioHardware, platform.runningApplications, platform.locale)) {
    names += (names.empty() ? "" : ", ") + app.name + (app.isPlaying ? " (plays)" : "");
  }
  return {"applications", true, names.empty() ? "none has played sound yet" : names};
}

// What the service says of itself; an empty object if it says nothing, as a service of others may.
Task<json::object> describe(platform::URLSession& network, platform::URL url) {
  const auto reply = co_await network.data({"GET", std::move(url), {}, {}});
  json::error_code error;
  const auto parsed = json::parse(reply.body, error);
  co_return reply.status == 200 && !error && parsed.is_object() ? parsed.get_object() : json::object();
}

std::string textOf(const json::object& from, std::string_view key) {
  const auto* const value = from.if_contains(key);
  return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
}

CheckedThing recognition(const json::object& about) {
  const std::string engine = textOf(about, "engine");
  const auto* const languages = about.if_contains("languages");
  if (engine.empty() || languages == nullptr || !languages->is_array())
    return {"recognition", true, "the service does not say how it recognises"};
  const std::size_t count = languages->get_array().size();
  std::string text = engine + ", " + std::to_string(count) + " languages";
  if (count <= 1)
    text += "; \"tolvera-service models install base-q8_0\" makes it understand people, in many languages";
  return {"recognition", count > 0, std::move(text)};
}

Task<CheckedThing> account(platform::Platform& platform, const API& api) {
  const auto token = TokenStore::load(platform.fileManager, std::string(api.baseURL().buffer()));
  if (!token || token->empty())
    co_return CheckedThing{"account", true, "none yet; the first start makes one"};
  try {
    const auto me = co_await api.me(*token);
    const auto left = std::to_string(std::lround(me.secondsLeft / 60)) + " min left";
    if (me.secondsLeft > 0) co_return CheckedThing{"account", true, left};
    co_return CheckedThing{"account", false, left + "; buy more in the program"};
  } catch (const std::exception& error) {
    co_return CheckedThing{"account", false, error.what()};
  }
}

} // namespace

Task<std::vector<CheckedThing>> checkMachine(platform::Platform& platform, platform::MachineFacts facts) {
  std::vector<CheckedThing> things;
  things.push_back(found("sound server", facts.soundServer,
                         "none answers; start PipeWire, or log in to the desktop again"));
  things.push_back(found("microphone", facts.microphone, "none; plug one in. System audio works without it"));
  things.push_back(applications(platform));

  const API api(AppSettings(platform).baseURL(), platform.urlSession);
  const std::string base(api.baseURL().buffer());
  try {
    const json::object about = co_await describe(platform.urlSession, platform::URL(base + "/api/about"));
    const std::string name = textOf(about, "name");
    things.push_back(
        {"service", true, base + (name.empty() ? "" : ", " + name + " " + textOf(about, "version"))});
    things.push_back(recognition(about));
    things.push_back(co_await account(platform, api));
  } catch (const std::exception& error) {
    things.push_back(
        {"service", false, std::string(error.what()) + "; start tolvera-service and look at what it prints"});
  }

  things.push_back(
      {"desktop", true, facts.desktop.empty() ? "none; only tolvera-terminal runs here" : facts.desktop});
  things.push_back(
      {"tray", true,
       facts.hasTrayHost ? "found" : "no host for status notifiers; launch the program for its window"});
  things.push_back({"settings portal", true,
                    facts.hasSettingsPortal ? "found" : "none; the program stays light on a dark desktop"});
  things.push_back(
      {"configuration", facts.configurationIsWritable,
       facts.configuration.string() +
           (facts.configurationIsWritable ? "" : " cannot be written; mend its owner and mode")});
  co_return things;
}

Task<void> traceMachine(platform::Platform& platform, platform::MachineFacts facts) {
  for (const CheckedThing& thing : co_await checkMachine(platform, std::move(facts))) {
    log::trace(log::Category::session, thing.works ? "works: " : "does not work: ", thing.name, ": ",
               thing.text);
  }
}

} // namespace tolvera

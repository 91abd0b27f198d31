#include "Tolvera/Model/AppState.h"

#include "Async/Gate.h"
#include "Async/Log.h"
#include "Tolvera/Model/TokenStore.h"
#include "TolveraCore/AudioRoute.h"

#include <cmath>
#include <exception>
#include <limits>

namespace tolvera {

namespace {

using namespace std::chrono_literals;

using log::Category;

constexpr auto pollInterval = 3s;
constexpr int pollsAfterOpeningTheBrowser = 40;

} // namespace

struct AppState::Signup {
  std::string server;
  bool isOver = false;
  std::string token;
  std::exception_ptr failure;
  std::vector<std::shared_ptr<Gate>> waiting;

  void end() {
    isOver = true;
    for (const auto& gate : waiting) gate->open();
  }
};

platform::URL AppState::serverURL() const { return settings_->baseURL(); }

API AppState::api() const { return API(serverURL(), platform_.urlSession); }

Task<std::string> AppState::currentToken() {
  const std::string server(serverURL().buffer());
  if (token_) co_return *token_;
  if (auto stored = TokenStore::load(platform_.fileManager, server)) {
    token_ = *stored;
    co_return *stored;
  }
  if (const auto underWay = signup_; underWay && underWay->server == server) {
    const auto gate = underWay->waiting.emplace_back(std::make_shared<Gate>());
    while (!underWay->isOver) co_await gate->pass();
    if (underWay->failure) std::rethrow_exception(underWay->failure);
    co_return underWay->token;
  }
  const auto signup = std::make_shared<Signup>();
  signup->server = server;
  signup_ = signup;
  // If the program's end destroys this task in the middle, those that wait for it are destroyed as well.
  const std::unique_ptr<Signup, decltype([](Signup* ended) { ended->end(); })> ending(signup.get());
  try {
    signup->token = co_await signUp(server);
  } catch (...) {
    signup->failure = std::current_exception();
  }
  if (signup_ == signup) signup_.reset();
  if (signup->failure) std::rethrow_exception(signup->failure);
  co_return signup->token;
}

Task<std::string> AppState::signUp(std::string server) {
  log::trace(Category::account, "signing up at ", std::string_view(serverURL().encoded_host_and_port()));
  const auto signup = co_await api().signup();
  log::trace(Category::account, "signed up, ", signup.secondsLeft, " s left");
  TokenStore::save(platform_.fileManager, signup.token, server);
  token_ = signup.token;
  setSecondsLeft(signup.secondsLeft);
  co_return signup.token;
}

Task<void> AppState::refreshAccount() {
  std::optional<API::Me> reply;
  bool unauthorized = false;
  try {
    const auto token = co_await currentToken();
    reply = co_await api().me(token);
  } catch (const API::ServerError& error) {
    unauthorized = error.isUnauthorized();
    if (!unauthorized) reportAccountFailure(error);
  } catch (const std::exception& error) {
    reportAccountFailure(error);
  }

  if (reply) {
    assign(me_, std::move(reply), &AppState::meChanged);
    setSecondsLeft(me_->secondsLeft);
    log::trace(Category::account, "account read: ", secondsLeft_, " s left, signed in ", isSignedIn());
  } else if (unauthorized) {
    forgetToken();
    if (me_) co_return;
    try {
      co_await currentToken();
    } catch (const std::exception&) {
      // The next use of the token signs up again.
    }
  }
}

void AppState::reportAccountFailure(const std::exception& error) {
  log(QStringLiteral("查余额失败：") + QString::fromUtf8(error.what()));
  log::warn(Category::account, "the account could not be read: ", std::string_view(error.what()));
}

void AppState::forgetToken() {
  log::warn(Category::account, "the service does not know the token, which is dropped");
  TokenStore::clear(platform_.fileManager, std::string(serverURL().buffer()));
  token_.reset();
}

Task<void> AppState::bootstrap() {
  ++bootstraps_;
  co_await refreshAccount();
  --bootstraps_;
  refreshApps();
  listenForOutputChanges();
  listenForService();
}

void AppState::refreshApps() {
  assign(apps_,
         AudioProcesses::userApps(platform_.audioHardware, platform_.runningApplications, platform_.locale),
         &AppState::appsChanged);
  assign(outputIsBuiltInSpeaker_, AudioRoute::isBuiltInSpeaker(platform_.audioHardware),
         &AppState::outputIsBuiltInSpeakerChanged);
}

void AppState::listenForOutputChanges() {
  if (outputObserver_) return;
  outputObserver_ = platform_.notificationCenter.addObserver(
      platform::defaultOutputDeviceDidChange, [weak = weak_from_this()] {
        const auto model = weak.lock();
        if (!model) return;
        model->assign(model->outputIsBuiltInSpeaker_,
                      AudioRoute::isBuiltInSpeaker(model->platform_.audioHardware),
                      &AppState::outputIsBuiltInSpeakerChanged);
      });
}

void AppState::listenForService() {
  if (serviceObserver_) return;
  serviceObserver_ =
      platform_.notificationCenter.addObserver(platform::localServiceDidStart, [weak = weak_from_this()] {
        if (const auto model = weak.lock()) model->retryBootstrap();
      });
}

// A press that leads to no page changes nothing, so its failure only reaches the trace.
Task<void> AppState::signIn() {
  try {
    const auto token = co_await currentToken();
    const auto page = co_await api().alipayAuthURL(token, std::nullopt, languageCode());
    if (!openInBrowser(page.url)) co_return;
  } catch (const std::exception& error) {
    log::warn(Category::account, "no sign-in page: ", std::string_view(error.what()));
    co_return;
  }
  co_await pollForAccountChange();
}

Task<void> AppState::openTopUp(std::string pack) {
  try {
    const auto token = co_await currentToken();
    const auto page = co_await api().checkout(token, std::move(pack), "alipay", languageCode());
    if (!openInBrowser(page.url)) co_return;
  } catch (const std::exception& error) {
    log::warn(Category::account, "no purchase page: ", std::string_view(error.what()));
    co_return;
  }
  co_await pollForAccountChange();
}

bool AppState::openInBrowser(const std::string& address) {
  const auto url = platform::parseURL(address);
  if (!url || !url->has_scheme()) return false;
  platform_.workspace.openURL(*url);
  return true;
}

Task<void> AppState::pollForAccountChange() {
  const bool signedIn = isSignedIn();
  const double seconds = secondsLeft_;
  for (int poll = 0; poll < pollsAfterOpeningTheBrowser; ++poll) {
    co_await platform_.clock.sleep(pollInterval);
    co_await refreshAccount();
    if (isSignedIn() != signedIn || secondsLeft_ != seconds) co_return;
  }
}

Task<void> AppState::signOut() {
  std::string token;
  try {
    token = co_await currentToken();
  } catch (const std::exception&) {
    co_return;
  }
  try {
    co_await api().signOut(token);
  } catch (const std::exception&) {
    // The refresh below reads the true state.
  }
  co_await refreshAccount();
}

void AppState::openPrivacy() {
  auto page = serverURL();
  auto segments = page.segments();
  while (!segments.empty() && segments.back().empty()) segments.pop_back();
  segments.push_back("privacy");
  platform_.workspace.openURL(page);
}

QString AppState::formatTime(double seconds) const {
  // A balance that is no number, or too large for an integer, reads like an empty one.
  const double rounded = std::round(seconds);
  if (!(rounded >= 60) || rounded >= static_cast<double>(std::numeric_limits<qint64>::max())) {
    return strings().underAMinute();
  }
  const auto whole = static_cast<qint64>(rounded);
  return whole >= 3600 ? strings().hoursLeft(whole / 3600, whole % 3600 / 60)
                       : strings().minutesLeft(whole / 60);
}

} // namespace tolvera

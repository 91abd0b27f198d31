#pragma once

#include "Async/AsyncStream.h"
#include "Async/Spawn.h"
#include "Platform/Platform.h"
#include "Tolvera/Model/AppSettings.h"
#include "Tolvera/Model/Phase.h"
#include "Tolvera/Model/Strings.h"
#include "Tolvera/Model/WindowControllers.h"
#include "TolveraCore/API.h"
#include "TolveraCore/AudioCapture.h"
#include "TolveraCore/AudioProcesses.h"
#include "TolveraCore/DubPlayer.h"
#include "TolveraCore/TranslateSession.h"

#include <QObject>
#include <QString>
#include <QVariantList>

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tolvera {

// The application's one model: the run, its captions, the account. The program makes it once and keeps it
// until exit; every view observes it and calls it. Main thread only. A property announces each change once.
// Public operations report a failure through `phase` or not at all.
//
// The `begin…` form of an operation runs it in a task that keeps the model alive until it has ended. A caller
// that awaits the operation itself keeps the model alive.
class AppState final : public QObject, public std::enable_shared_from_this<AppState> {
  Q_OBJECT
  Q_PROPERTY(tolvera::AppState::Tab tab READ tab WRITE setTab NOTIFY tabChanged)
  Q_PROPERTY(tolvera::AppSettings* settings READ settings CONSTANT)
  Q_PROPERTY(tolvera::Phase phase READ phase NOTIFY phaseChanged)
  Q_PROPERTY(bool isStopping READ isStopping NOTIFY isStoppingChanged)
  Q_PROPERTY(bool knowsAccount READ knowsAccount NOTIFY meChanged)
  Q_PROPERTY(bool signedIn READ isSignedIn NOTIFY meChanged)
  Q_PROPERTY(double secondsLeft READ secondsLeft NOTIFY secondsLeftChanged)
  Q_PROPERTY(QString balanceText READ balanceText NOTIFY balanceTextChanged)
  Q_PROPERTY(QVariantList apps READ appsForViews NOTIFY appsChanged)
  Q_PROPERTY(bool outputIsBuiltInSpeaker READ outputIsBuiltInSpeaker NOTIFY outputIsBuiltInSpeakerChanged)
  Q_PROPERTY(QString sourceLine READ sourceLine NOTIFY sourceLineChanged)
  Q_PROPERTY(QString currentLine READ currentLine NOTIFY currentLineChanged)
  Q_PROPERTY(QString currentStash READ currentStash NOTIFY currentStashChanged)
  Q_PROPERTY(QString previousLine READ previousLine NOTIFY previousLineChanged)
  Q_PROPERTY(QString overlayStatus READ overlayStatus NOTIFY overlayStatusChanged)
  Q_PROPERTY(bool canSwapDirection READ canSwapDirection NOTIFY canSwapDirectionChanged)

 public:
  enum class Tab { translate, settings };
  Q_ENUM(Tab)

  // The model's windows, each owned by it.
  struct Windows {
    std::unique_ptr<CaptionWindowController> caption;
    std::unique_ptr<OnboardingWindowController> onboarding;
    // Shows a window with the tray's menu, for developers; may be absent.
    std::function<void(AppState&)> panelPreview = nullptr;
  };

  // `platform` outlives the model. What the launch flags ask for is posted and runs after this returns.
  static std::shared_ptr<AppState> make(platform::Platform& platform, Windows windows);
  ~AppState() override;

  [[nodiscard]] Tab tab() const { return tab_; }
  void setTab(Tab tab) { assign(tab_, tab, &AppState::tabChanged); }
  [[nodiscard]] AppSettings* settings() const { return settings_.get(); }
  [[nodiscard]] const Phase& phase() const { return phase_; }
  // The last account reply; absent before the first.
  [[nodiscard]] const std::optional<API::Me>& me() const { return me_; }
  // Balance in seconds, as the service last gave it.
  [[nodiscard]] double secondsLeft() const { return secondsLeft_; }
  // The balance as text, in the interface language.
  // The run has been stopped and its last captions are still coming.
  [[nodiscard]] bool isStopping() const { return isStopping_; }
  [[nodiscard]] const QString& balanceText() const { return balanceText_; }

  // The applications offered for capture, as they were at the last refresh.
  [[nodiscard]] const std::vector<AudioApp>& apps() const { return apps_; }
  [[nodiscard]] QVariantList appsForViews() const;
  // Whether sound goes out through the machine's own speaker. Only the choice of a text depends on it.
  [[nodiscard]] bool outputIsBuiltInSpeaker() const { return outputIsBuiltInSpeaker_; }
  // Lists the applications that make sound, and reads the output route.
  Q_INVOKABLE void refreshApps();

  // The recognised source text as it now stands.
  [[nodiscard]] const QString& sourceLine() const { return sourceLine_; }
  // The translation in progress: what is settled, and the tail that may still change.
  [[nodiscard]] const QString& currentLine() const { return currentLine_; }
  [[nodiscard]] const QString& currentStash() const { return currentStash_; }
  // The last finished translation.
  [[nodiscard]] const QString& previousLine() const { return previousLine_; }
  // One line of status for the caption views; every caption empties it.
  [[nodiscard]] const QString& overlayStatus() const { return overlayStatus_; }

  // The account as the views read it: false while `me` is absent. It is known once the service has
  // told of it.
  [[nodiscard]] bool knowsAccount() const { return me_.has_value(); }
  [[nodiscard]] bool isSignedIn() const { return me_ && me_->signedIn; }

  [[nodiscard]] CaptionWindowController& captionWindow() { return *windows_.caption; }
  [[nodiscard]] OnboardingWindowController& onboarding() { return *windows_.onboarding; }

  // Opens a run, from `idle` or `failed`; does nothing otherwise. The outcome is in `phase`. A `stop`
  // that comes while it still waits for the token or a permission ends the start as well.
  Task<void> start();
  Q_INVOKABLE void beginStart() { begin("start", start()); }
  // Ends the run, waits for the session's goodbye and refreshes the account. Does nothing when `idle`.
  Task<void> stop();
  Q_INVOKABLE void beginStop() { begin("stop", stop()); }

  [[nodiscard]] bool canSwapDirection() const;
  // Exchanges source and target, unless the source is "auto".
  Q_INVOKABLE void swapDirection();

  // What the first appearance of the interface needs: the account, the applications, the output route and
  // its changes from now on. Harmless to repeat.
  Task<void> bootstrap();
  Q_INVOKABLE void beginBootstrap() { begin("bootstrap", bootstrap()); }
  // The same for a window that the user comes back to, and for a service that has begun to listen: does
  // nothing once the account is known, or while it is being asked for.
  Q_INVOKABLE void retryBootstrap() {
    if (!knowsAccount() && bootstraps_ == 0) beginBootstrap();
  }
  // Asks for the account; old values stay if that fails.
  Task<void> refreshAccount();
  // Opens the sign-in page, or the purchase of the pack with this id, in the browser. Then asks for the
  // account every 3 s until it has changed or 2 minutes are over. Does nothing if there is no page.
  Task<void> signIn();
  Q_INVOKABLE void beginSignIn() { begin("sign in", signIn()); }
  Task<void> openTopUp(std::string pack);
  Q_INVOKABLE void beginTopUp(const QString& pack) { begin("top up", openTopUp(pack.toStdString())); }
  // Leaves a signed-out installation with the same token.
  Task<void> signOut();
  Q_INVOKABLE void beginSignOut() { begin("sign out", signOut()); }
  // Opens the service's privacy page in the browser.
  Q_INVOKABLE void openPrivacy();
  // Opens the system's settings at its microphones.
  Q_INVOKABLE void openMicrophoneSettings();
  // Show a view without a run, for developers: the tray's menu in a window, and the caption panel with
  // sample captions.
  void previewPanel();
  void previewOverlay();
  // A balance in seconds as text, in the interface language.
  [[nodiscard]] Q_INVOKABLE QString formatTime(double seconds) const;

 Q_SIGNALS:
  void tabChanged();
  void phaseChanged();
  void meChanged();
  void secondsLeftChanged();
  void isStoppingChanged();
  void balanceTextChanged();
  void appsChanged();
  void outputIsBuiltInSpeakerChanged();
  void sourceLineChanged();
  void currentLineChanged();
  void currentStashChanged();
  void previousLineChanged();
  void overlayStatusChanged();
  void canSwapDirectionChanged();

 private:
  using Changed = void (AppState::*)();

  AppState(platform::Platform& platform, Windows windows);
  void postLaunchTasks();

  template<typename T>
  void assign(T& field, T value, Changed changed) {
    if (field == value) return;
    field = std::move(value);
    Q_EMIT(this->*changed)();
  }

  void begin(std::string name, Task<void> operation) {
    spawn(platform_.mainExecutor, std::move(name), shared_from_this(), std::move(operation));
  }

  // The run (AppState+Run.cpp). The steps of `start`; each sets the phase when it fails.
  void abandonRun();
  void enterStarting();
  bool checkBalance();
  Task<std::optional<std::string>> tokenFor(std::uint64_t run); // nothing if the run is over
  Task<bool> mayCapture(std::uint64_t run);                     // false if the run is over
  void startDubPlayer();
  std::optional<AsyncStream<SharedSampleBlock>> startCapture();
  Task<void> startSession(std::uint64_t run, std::string token, AsyncStream<SharedSampleBlock> samples);
  AudioCaptureBackend::OnSamples sampleCallback(AsyncStream<SharedSampleBlock>::Writer writer);
  std::unique_ptr<AudioCaptureBackend> makeBackend();
  Task<bool> ensureMicrophoneAccess();
  [[nodiscard]] QString describeCaptureFailure(const std::exception& error) const;
  [[nodiscard]] QString friendly(const QString& message, const std::string& code) const;
  static Task<void> pump(std::shared_ptr<TranslateSession> session, AsyncStream<SharedSampleBlock> samples);

  // Fields (AppState.cpp). `why` is for the trace alone.
  void setPhase(Phase phase, std::string_view why);
  void fail(QString message, std::string_view why) { setPhase(Phase::failed(std::move(message)), why); }
  void setStopping(bool stopping) { assign(isStopping_, stopping, &AppState::isStoppingChanged); }
  void setSecondsLeft(double seconds);
  void updateBalanceText() { assign(balanceText_, formatTime(secondsLeft_), &AppState::balanceTextChanged); }
  void setSourceLine(QString line) { assign(sourceLine_, std::move(line), &AppState::sourceLineChanged); }
  void setCurrent(QString line, QString stash) {
    assign(currentLine_, std::move(line), &AppState::currentLineChanged);
    assign(currentStash_, std::move(stash), &AppState::currentStashChanged);
  }
  void setPreviousLine(QString line) {
    assign(previousLine_, std::move(line), &AppState::previousLineChanged);
  }
  void setOverlayStatus(QString status) {
    assign(overlayStatus_, std::move(status), &AppState::overlayStatusChanged);
  }
  void clearLines();
  [[nodiscard]] Strings strings() const { return settings_->strings(); }
  [[nodiscard]] QString listening() const { return strings().pick("正在聆听…", "Listening…"); }
  void log(const QString& message) const;

  // Events and captions (AppState+Events.cpp).
  static Task<void> deliver(std::weak_ptr<AppState> model, AsyncStream<TranslateSession::Event> events);
  void handle(const TranslateSession::Event& event);
  void applyCaption(const TranslateSession::Caption& caption);

  // Watchdog and idle timer (AppState+Timers.cpp).
  void noteSamples(const SampleBlock& samples);
  void startWatchdog();
  static Task<void> watch(std::weak_ptr<AppState> model, Clock& clock);
  void reportSilence();
  void restartIdleTimer();
  void stopIdleTimer();
  static Task<void> clearWhenIdle(std::weak_ptr<AppState> model, Clock& clock);

  // The account (AppState+Account.cpp).
  Task<void> pollForAccountChange();
  void listenForOutputChanges();
  void listenForService();
  bool openInBrowser(const std::string& address); // false if the text is no address
  // Throws what the signup throws. A second caller gets the outcome of the signup that is under way.
  Task<std::string> currentToken();
  Task<std::string> signUp(std::string server);
  void forgetToken();
  void reportAccountFailure(const std::exception& error);
  // The interface language as the service knows it.
  [[nodiscard]] std::string languageCode() const { return strings().zh ? "zh" : "en"; }
  [[nodiscard]] platform::URL serverURL() const;
  [[nodiscard]] API api() const;

  platform::Platform& platform_;
  Windows windows_;
  const std::unique_ptr<AppSettings> settings_;
  const bool verbose_;

  Tab tab_ = Tab::translate;
  Phase phase_;
  std::optional<API::Me> me_;
  double secondsLeft_ = 0;
  bool isStopping_ = false;
  QString balanceText_;
  std::vector<AudioApp> apps_;
  bool outputIsBuiltInSpeaker_ = false;
  QString sourceLine_;
  QString currentLine_;
  QString currentStash_;
  QString previousLine_;
  QString overlayStatus_;

  std::unique_ptr<platform::NotificationCenter::Registration> outputObserver_;
  std::unique_ptr<platform::NotificationCenter::Registration> serviceObserver_;
  std::optional<std::string> token_;
  struct Signup;
  std::shared_ptr<Signup> signup_; // the one under way
  int bootstraps_ = 0;             // under way
  std::shared_ptr<TranslateSession> session_;
  std::unique_ptr<AudioCaptureBackend> backend_;
  std::shared_ptr<DubPlayer> dubPlayer_; // shared with the sample callback of its run
  std::optional<AsyncStream<SharedSampleBlock>::Writer> continuation_;
  TaskHandle pumpTask_;
  TaskHandle eventTask_;
  TaskHandle idleTask_;
  TaskHandle watchdogTask_;
  Duration idleDeadline_{}; // on the clock of Clock::uptime
  WallTime lastCallback_ = distantPast;
  WallTime lastNonSilent_ = distantPast;
  WallTime captureStartedAt_ = distantPast;
  // Every start and stop raises it, so that an operation that waited can tell that another overtook it.
  std::uint64_t runNumber_ = 0;
};

} // namespace tolvera

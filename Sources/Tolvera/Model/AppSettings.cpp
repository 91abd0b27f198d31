#include "Tolvera/Model/AppSettings.h"

#include "TolveraCore/API.h"
#include "TolveraCore/Languages.h"

#include <utility>

namespace tolvera {

namespace {

QString defaultServerURL() {
  const auto& text = API::defaultBaseURL().buffer();
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

} // namespace

CaptureMode CaptureMode::systemApp(QString bundleID, QString name) {
  return {.kind = Kind::systemApp, .bundleID = std::move(bundleID), .name = std::move(name)};
}

CaptureMode CaptureMode::microphone() { return {.kind = Kind::microphone, .bundleID = {}, .name = {}}; }

QString CaptureMode::storedText() const {
  switch (kind) {
  case Kind::systemApp:
    return "app";
  case Kind::microphone:
    return "mic";
  case Kind::systemEverything:
    break;
  }
  return "all";
}

// The fields are initialised in the order of their declaration; `target` needs the language before it.
AppSettings::AppSettings(platform::Platform& platform, QObject* parent)
    : QObject(parent), platform_(platform), uiLanguage_(uiLanguageFromText(text("uiLanguage", "system"))),
      target_(loadTarget()), source_(text("source", "auto")), showSource_(flag("showSource", true)),
      voice_(text("voice", "Tina")), menuBarEnabled_(flag("menuBarEnabled", true)),
      overlayEnabled_(flag("overlayEnabled", true)),
      overlayFontSize_(platform.userDefaults.doubleForKey("overlayFontSize").value_or(22.0)),
      serverURL_(text("serverURL", defaultServerURL())), seenOnboarding_(flag("seenOnboarding", false)),
      dub_(flag("dub", false)), captureMode_(loadCaptureMode()) {
  if (dub_ && !canDubTarget()) setDub(false);
  platform_.interfaceLanguage.setChinese(strings().zh);
}

platform::URL AppSettings::baseURL() const {
  const auto parsed = platform::parseURL(serverURL_.toStdString());
  return parsed && !parsed->empty() ? *parsed : API::defaultBaseURL();
}

QString AppSettings::text(const char* key, const QString& otherwise) const {
  const auto stored = defaults().stringForKey(key);
  return stored ? QString::fromStdString(*stored) : otherwise;
}

bool AppSettings::flag(const char* key, bool otherwise) const {
  const auto stored = defaults().objectForKey(key);
  const bool* value = stored ? std::get_if<bool>(&*stored) : nullptr;
  return value ? *value : otherwise;
}

QString AppSettings::loadTarget() const {
  if (const auto stored = defaults().stringForKey("target")) return QString::fromStdString(*stored);
  const std::string guess = Languages::guessTarget(platform_.locale.currentIdentifier());
  return guess == "en" && strings().zh ? "zh" : QString::fromStdString(guess);
}

CaptureMode AppSettings::loadCaptureMode() const {
  const QString stored = text("captureMode", {});
  if (stored == "app") return CaptureMode::systemApp(text("captureBundle", ""), text("captureName", ""));
  if (stored == "mic") return CaptureMode::microphone();
  return CaptureMode::systemEverything();
}

bool AppSettings::canDubTarget() const { return Languages::canDub(target_.toStdString()); }

template<typename T>
void AppSettings::assign(T& field, const T& value, void (AppSettings::*changed)()) {
  if (field == value) return;
  field = value;
  Q_EMIT(this->*changed)();
}

void AppSettings::assignText(QString& field, const QString& value, const char* key,
                             void (AppSettings::*changed)()) {
  const std::string written = value.toStdString();
  assign(field, value, changed);
  defaults().setObject(key, written);
}

void AppSettings::assignFlag(bool& field, bool value, const char* key, void (AppSettings::*changed)()) {
  assign(field, value, changed);
  defaults().setObject(key, value);
}

void AppSettings::setUILanguage(UILanguage language) {
  platform_.interfaceLanguage.setChinese(
      Strings::forSetting(language, platform_.locale, platform_.desktopFamily).zh);
  assign(uiLanguage_, language, &AppSettings::uiLanguageChanged);
  defaults().setObject("uiLanguage", storedText(language).toStdString());

  if (defaults().stringForKey("target")) return;
  const QString follows = strings().zh ? "zh" : "en";
  if (target_ == follows) return;
  setTarget(follows);
  // The store keeps no target until the user chooses one.
  defaults().removeObjectForKey("target");
}

void AppSettings::setTarget(const QString& code) {
  assignText(target_, code, "target", &AppSettings::targetChanged);
}

void AppSettings::setSource(const QString& code) {
  assignText(source_, code, "source", &AppSettings::sourceChanged);
}

void AppSettings::setShowSource(bool shown) {
  assignFlag(showSource_, shown, "showSource", &AppSettings::showSourceChanged);
}

void AppSettings::setVoice(const QString& code) {
  assignText(voice_, code, "voice", &AppSettings::voiceChanged);
}

void AppSettings::setMenuBarEnabled(bool enabled) {
  assignFlag(menuBarEnabled_, enabled, "menuBarEnabled", &AppSettings::menuBarEnabledChanged);
}

void AppSettings::setOverlayEnabled(bool enabled) {
  assignFlag(overlayEnabled_, enabled, "overlayEnabled", &AppSettings::overlayEnabledChanged);
}

void AppSettings::setOverlayFontSize(double points) {
  assign(overlayFontSize_, points, &AppSettings::overlayFontSizeChanged);
  defaults().setObject("overlayFontSize", points);
}

void AppSettings::setServerURL(const QString& url) {
  assignText(serverURL_, url, "serverURL", &AppSettings::serverURLChanged);
}

void AppSettings::setSeenOnboarding(bool seen) {
  assignFlag(seenOnboarding_, seen, "seenOnboarding", &AppSettings::seenOnboardingChanged);
}

void AppSettings::setDub(bool on) {
  assign(dub_, on, &AppSettings::dubChanged);
  if (on && !canDubTarget()) {
    setDub(false);
    return;
  }
  if (on) setShowSource(true);
  defaults().setObject("dub", on);
}

// By value: the argument may be the field itself, which an observer may assign.
void AppSettings::setCaptureMode(CaptureMode mode) {
  assign(captureMode_, mode, &AppSettings::captureModeChanged);
  defaults().setObject("captureMode", mode.storedText().toStdString());
  if (mode.kind != CaptureMode::Kind::systemApp) return;
  defaults().setObject("captureBundle", mode.bundleID.toStdString());
  defaults().setObject("captureName", mode.name.toStdString());
}

void AppSettings::captureApp(const QString& bundleID, const QString& name) {
  setCaptureMode(CaptureMode::systemApp(bundleID, name));
}

void AppSettings::captureEverything() { setCaptureMode(CaptureMode::systemEverything()); }

void AppSettings::captureMicrophone() { setCaptureMode(CaptureMode::microphone()); }

} // namespace tolvera

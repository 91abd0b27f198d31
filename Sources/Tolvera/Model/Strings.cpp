#include "Tolvera/Model/Strings.h"

#include <algorithm>

namespace tolvera {

namespace {

#ifdef TOLVERA_VERSION
constexpr const char* buildVersion = TOLVERA_VERSION;
#else
constexpr const char* buildVersion = nullptr;
#endif

} // namespace

QString storedText(UILanguage language) {
  switch (language) {
  case UILanguage::chinese:
    return "chinese";
  case UILanguage::english:
    return "english";
  case UILanguage::system:
    break;
  }
  return "system";
}

UILanguage uiLanguageFromText(const QString& text) {
  const auto* const found = std::ranges::find(allUILanguages, text, storedText);
  return found == allUILanguages.end() ? UILanguage::system : *found;
}

Strings Strings::forSetting(UILanguage language, const platform::Locale& locale,
                            platform::DesktopFamily desktop) {
  Strings strings;
  strings.desktop = desktop;
  strings.zh = language == UILanguage::chinese ||
               (language == UILanguage::system && locale.currentLanguageCode().value_or("en") == "zh");
  return strings;
}

QString Strings::pick(const QString& chinese, const QString& english) const { return zh ? chinese : english; }

QString Strings::forDesktop(const QString& macOS, const QString& freedesktop) const {
  return desktop == platform::DesktopFamily::macOS ? macOS : freedesktop;
}

QString Strings::hoursLeft(qint64 hours, qint64 minutes) const {
  return pick("%1 小时 %2 分", "%1h %2m").arg(hours).arg(minutes);
}

QString Strings::minutesLeft(qint64 minutes) const { return pick("%1 分钟", "%1m").arg(minutes); }

QString Strings::versionLine() const { return detail::versionLine(*this, buildVersion); }

QString detail::versionLine(const Strings& strings, const char* version) {
  return strings.productName() + " " + (version && *version ? version : "—");
}

QStringList Strings::onboardSteps() const {
  return {
      forDesktop(
          pick("点菜单栏的对话气泡图标，选择翻译「系统声音」还是「周围环境声音」",
               "Click the speech bubble in the menu bar and choose system audio or the microphone"),
          pick("点系统托盘里的对话气泡图标，选择翻译「系统声音」还是「周围环境声音」",
               "Click the speech bubble in the system tray and choose system audio or the microphone")),
      pick("选好译成哪种语言，点「开始翻译」", "Pick the language to translate into, then press start"),
      forDesktop(
          pick("第一次开始时，macOS 会请求录制系统音频的权限，点「允许」；如果错过了，到「系统设置 → "
               "隐私与安全性 → 屏幕与系统音频录制」里打开托维拉",
               "The first time, macOS asks for permission to record system audio. Choose Allow. If you miss "
               "it, enable Tolvera under System Settings, Privacy & Security, Screen & System Audio "
               "Recording"),
          pick("不需要任何授权。开始之后，一有人说话就会出现字幕",
               "No permission is needed. Once started, captions come as soon as somebody speaks")),
  };
}

QString Strings::connecting() const { return pick("正在连接…", "Connecting…"); }
QString Strings::reconnecting() const { return pick("网络波动，重新连接中…", "Reconnecting…"); }
QString Strings::translating() const { return pick("正在翻译", "Translating"); }
QString Strings::startTranslating() const { return pick("开始翻译", "Start translating"); }
QString Strings::stop() const { return pick("停止", "Stop"); }
QString Strings::timeLeft() const { return pick("剩余时长", "Time left"); }
QString Strings::underAMinute() const { return pick("不到 1 分钟", "under a minute"); }
QString Strings::signIn() const { return pick("用支付宝登录", "Sign in with Alipay"); }
QString Strings::settings() const { return pick("设置", "Settings"); }
QString Strings::interfaceLanguage() const { return pick("界面语言", "Interface language"); }
QString Strings::detectAutomatically() const { return pick("自动识别", "Detect automatically"); }
QString Strings::productName() const { return pick("托维拉", "Tolvera"); }

} // namespace tolvera

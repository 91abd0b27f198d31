#pragma once

#include "Platform/Platform.h"
#include "Tolvera/Model/Strings.h"
#include "Tolvera/Model/UILanguage.h"

#include <QObject>
#include <QString>

namespace tolvera {

// Where the sound of a run comes from.
struct CaptureMode {
  Q_GADGET
  Q_PROPERTY(QString kind READ storedText)
  Q_PROPERTY(QString bundleID MEMBER bundleID)
  Q_PROPERTY(QString name MEMBER name)

 public:
  enum class Kind {
    systemApp,        // the sound of one application
    systemEverything, // all sound of the system but the program's own
    microphone,       // the default audio input
  };

  Kind kind = Kind::systemEverything;
  // The application's bundle identifier, and the name that views show. Empty for the other kinds.
  QString bundleID;
  QString name;

  [[nodiscard]] static CaptureMode systemApp(QString bundleID, QString name);
  [[nodiscard]] static CaptureMode systemEverything() { return {}; }
  [[nodiscard]] static CaptureMode microphone();

  // The text that stands for the kind in the preferences and in the views: "app", "all", "mic".
  [[nodiscard]] QString storedText() const;

  bool operator==(const CaptureMode&) const = default;
};

// What the user has chosen. It reads the preference store when it is made, and writes it on every assignment,
// also of the same value. Owned by AppState; main thread only.
//
// A signal announces each field that an assignment changes, after the field has its new value and before
// the field's rule runs. The rules of `setUILanguage` and `setDub` change other fields too.
class AppSettings final : public QObject {
  Q_OBJECT
  Q_PROPERTY(QString uiLanguage READ uiLanguageText WRITE setUILanguageText NOTIFY uiLanguageChanged)
  Q_PROPERTY(tolvera::Strings strings READ strings NOTIFY uiLanguageChanged)
  Q_PROPERTY(QString target READ target WRITE setTarget NOTIFY targetChanged)
  Q_PROPERTY(QString source READ source WRITE setSource NOTIFY sourceChanged)
  Q_PROPERTY(bool showSource READ showSource WRITE setShowSource NOTIFY showSourceChanged)
  Q_PROPERTY(QString voice READ voice WRITE setVoice NOTIFY voiceChanged)
  Q_PROPERTY(bool menuBarEnabled READ menuBarEnabled WRITE setMenuBarEnabled NOTIFY menuBarEnabledChanged)
  Q_PROPERTY(bool overlayEnabled READ overlayEnabled WRITE setOverlayEnabled NOTIFY overlayEnabledChanged)
  Q_PROPERTY(
      double overlayFontSize READ overlayFontSize WRITE setOverlayFontSize NOTIFY overlayFontSizeChanged)
  Q_PROPERTY(QString serverURL READ serverURL WRITE setServerURL NOTIFY serverURLChanged)
  Q_PROPERTY(bool seenOnboarding READ seenOnboarding WRITE setSeenOnboarding NOTIFY seenOnboardingChanged)
  Q_PROPERTY(bool dub READ dub WRITE setDub NOTIFY dubChanged)
  Q_PROPERTY(tolvera::CaptureMode captureMode READ captureMode WRITE setCaptureMode NOTIFY captureModeChanged)

 public:
  // The platform outlives the settings, which tell it the interface language.
  explicit AppSettings(platform::Platform& platform, QObject* parent = nullptr);

  [[nodiscard]] platform::UserDefaults& defaults() const { return platform_.userDefaults; }

  [[nodiscard]] UILanguage uiLanguage() const { return uiLanguage_; }
  // Moves `target` along to the interface language, for as long as the user has not chosen a target.
  void setUILanguage(UILanguage language);
  [[nodiscard]] QString uiLanguageText() const { return storedText(uiLanguage_); }
  void setUILanguageText(const QString& text) { setUILanguage(uiLanguageFromText(text)); }
  // The texts in the interface language of this moment.
  [[nodiscard]] Strings strings() const {
    return Strings::forSetting(uiLanguage_, platform_.locale, platform_.desktopFamily);
  }

  [[nodiscard]] const QString& target() const { return target_; } // a language code
  void setTarget(const QString& code);
  [[nodiscard]] const QString& source() const { return source_; } // a language code or "auto"
  void setSource(const QString& code);
  [[nodiscard]] bool showSource() const { return showSource_; }
  void setShowSource(bool shown);
  [[nodiscard]] const QString& voice() const { return voice_; } // a voice code
  void setVoice(const QString& code);
  [[nodiscard]] bool menuBarEnabled() const { return menuBarEnabled_; }
  void setMenuBarEnabled(bool enabled);
  [[nodiscard]] bool overlayEnabled() const { return overlayEnabled_; }
  void setOverlayEnabled(bool enabled);
  [[nodiscard]] double overlayFontSize() const { return overlayFontSize_; } // points, of any size
  void setOverlayFontSize(double points);
  [[nodiscard]] const QString& serverURL() const { return serverURL_; } // need not parse
  void setServerURL(const QString& url);
  // The same as an address; the local service's if it does not parse.
  [[nodiscard]] platform::URL baseURL() const;
  [[nodiscard]] bool seenOnboarding() const { return seenOnboarding_; }
  void setSeenOnboarding(bool seen);
  [[nodiscard]] bool dub() const { return dub_; }
  // True falls back to false for a target that cannot be spoken, and otherwise shows the source as well.
  void setDub(bool on);
  [[nodiscard]] const CaptureMode& captureMode() const { return captureMode_; }
  void setCaptureMode(CaptureMode mode);

  // The three assignments of `captureMode`, for views.
  Q_INVOKABLE void captureApp(const QString& bundleID, const QString& name);
  Q_INVOKABLE void captureEverything();
  Q_INVOKABLE void captureMicrophone();

 Q_SIGNALS:
  void uiLanguageChanged();
  void targetChanged();
  void sourceChanged();
  void showSourceChanged();
  void voiceChanged();
  void menuBarEnabledChanged();
  void overlayEnabledChanged();
  void overlayFontSizeChanged();
  void serverURLChanged();
  void seenOnboardingChanged();
  void dubChanged();
  void captureModeChanged();

 private:
  template<typename T>
  void assign(T& field, const T& value, void (AppSettings::*changed)());
  void assignText(QString& field, const QString& value, const char* key, void (AppSettings::*changed)());
  void assignFlag(bool& field, bool value, const char* key, void (AppSettings::*changed)());

  [[nodiscard]] QString text(const char* key, const QString& otherwise) const;
  [[nodiscard]] bool flag(const char* key, bool otherwise) const;
  [[nodiscard]] QString loadTarget() const;
  [[nodiscard]] CaptureMode loadCaptureMode() const;
  [[nodiscard]] bool canDubTarget() const;

  platform::Platform& platform_;
  UILanguage uiLanguage_;
  QString target_;
  QString source_;
  bool showSource_;
  QString voice_;
  bool menuBarEnabled_;
  bool overlayEnabled_;
  double overlayFontSize_;
  QString serverURL_;
  bool seenOnboarding_;
  bool dub_;
  CaptureMode captureMode_;
};

} // namespace tolvera

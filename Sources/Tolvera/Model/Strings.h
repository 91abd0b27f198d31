#pragma once

#include "Platform/DesktopFamily.h"
#include "Platform/Locale.h"
#include "Tolvera/Model/UILanguage.h"

#include <QMetaType>
#include <QString>
#include <QStringList>

namespace tolvera {

// Picks between the Chinese and the English literal of a text. A small value that is made where a text is
// needed and never stored, so that views follow a change of language. Any thread.
struct Strings {
  Q_GADGET
  Q_PROPERTY(bool zh MEMBER zh)
  Q_PROPERTY(QString connecting READ connecting)
  Q_PROPERTY(QString reconnecting READ reconnecting)
  Q_PROPERTY(QString translating READ translating)
  Q_PROPERTY(QString startTranslating READ startTranslating)
  Q_PROPERTY(QString stop READ stop)
  Q_PROPERTY(QString timeLeft READ timeLeft)
  Q_PROPERTY(QString underAMinute READ underAMinute)
  Q_PROPERTY(QString signIn READ signIn)
  Q_PROPERTY(QString settings READ settings)
  Q_PROPERTY(QString interfaceLanguage READ interfaceLanguage)
  Q_PROPERTY(QString detectAutomatically READ detectAutomatically)
  Q_PROPERTY(QString productName READ productName)
  Q_PROPERTY(QString versionLine READ versionLine)
  Q_PROPERTY(QStringList onboardSteps READ onboardSteps)

 public:
  bool zh = false; // Chinese if true, English if not
  platform::DesktopFamily desktop = platform::DesktopFamily::freedesktop;

  // By the user's choice; `system` is Chinese on every Chinese locale and English on all others.
  [[nodiscard]] static Strings forSetting(UILanguage language, const platform::Locale& locale,
                                          platform::DesktopFamily desktop);

  // The pair's text in this language. Both are written as literals where they are used.
  [[nodiscard]] Q_INVOKABLE QString pick(const QString& chinese, const QString& english) const;
  // Of two picked texts the one that is true on this desktop. The first names things that only macOS has.
  [[nodiscard]] Q_INVOKABLE QString forDesktop(const QString& macOS, const QString& freedesktop) const;
  // The identifier of the locale in which languages are named and sorted: "zh-Hans" or "en".
  [[nodiscard]] std::string localeIdentifier() const { return zh ? "zh-Hans" : "en"; }

  [[nodiscard]] QString hoursLeft(qint64 hours, qint64 minutes) const;
  [[nodiscard]] QString minutesLeft(qint64 minutes) const;
  // The product's name and its version, or an em dash if the build has no version.
  [[nodiscard]] QString versionLine() const;
  // How to begin, in order.
  [[nodiscard]] QStringList onboardSteps() const;

  // Texts of more than one place.
  [[nodiscard]] QString connecting() const;
  [[nodiscard]] QString reconnecting() const;
  [[nodiscard]] QString translating() const;
  [[nodiscard]] QString startTranslating() const;
  [[nodiscard]] QString stop() const;
  [[nodiscard]] QString timeLeft() const;
  [[nodiscard]] QString underAMinute() const;
  [[nodiscard]] QString signIn() const;
  [[nodiscard]] QString settings() const;
  [[nodiscard]] QString interfaceLanguage() const;
  [[nodiscard]] QString detectAutomatically() const;
  [[nodiscard]] QString productName() const;

  bool operator==(const Strings&) const = default;
};

namespace detail {
// The version line of a given version; "" and null mean no version.
[[nodiscard]] QString versionLine(const Strings& strings, const char* version);
} // namespace detail

} // namespace tolvera

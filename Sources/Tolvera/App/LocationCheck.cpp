#include "Tolvera/App/LocationCheck.h"

#include "Tolvera/Model/Strings.h"
#include "Tolvera/Model/UILanguage.h"

namespace tolvera::LocationCheck {

namespace {

constexpr auto temporaryPlace = "/AppTranslocation/";
constexpr auto applicationsFolder = "/Applications";

bool prefersChinese(const platform::Locale& locale) {
  const auto preferred = locale.preferredLanguages();
  const std::string first = preferred.empty() ? "en" : preferred.front();
  return first.starts_with("zh") || locale.currentLanguageCode() == "zh";
}

Alert alertFor(const platform::Locale& locale) {
  const Strings strings{prefersChinese(locale)};
  // The texts have their blanks as they stand.
  const auto reason =
      strings.pick("macOS 正在只读的临时位置运行托维拉，这种状态下窗口无法显示。",
                   "macOS is running Tolvera from a read-only temporary location, where its               "
                   "window cannot appear.");
  const auto remedy =
      strings.pick("打开下载到的磁盘映像，把托维拉拖到旁边的「应用程序」文件夹，再从那里打开即可。",
                   "Open the disk image you downloaded, drag Tolvera onto the Applications               "
                   "folder beside it, and launch it from there.");
  return {strings.pick("请先把托维拉拖进「应用程序」", "Move Tolvera to Applications first"),
          reason + QStringLiteral("\n\n") + remedy, strings.pick("打开「应用程序」", "Open Applications"),
          strings.pick("退出", "Quit")};
}

} // namespace

bool passes(const QString& path, const platform::Platform& platform, const RunAlert& runAlert) {
  if (platform.desktopFamily != platform::DesktopFamily::macOS) return true;
  if (!path.contains(QLatin1String(temporaryPlace))) return true;
  if (runAlert(alertFor(platform.locale))) platform.workspace.openFolder(applicationsFolder);
  return false;
}

} // namespace tolvera::LocationCheck

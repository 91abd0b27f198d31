// Draws every scene in both languages, light and dark, and tells which text is missing, cut off, covered or
// outside its window.

#include "ViewTests/Stage.h"

#include <QDir>

#include <cstdio>

namespace tolvera::test {
namespace {

bool draw(const QJsonObject& scene, const QDir& folder, bool chinese, bool dark) {
  Offscreen::setDark(dark);
  Offscreen::setTextSize(scene["text"].toInt(14));
  Stage stage(scene, chinese);
  auto& host = *stage.host;
  host.window().setColor(dark ? QColor(0x3A, 0x46, 0x58) : QColor(0xDC, 0xE4, 0xEC)); // behind the panel
  const auto name = QStringLiteral("%1-%2-%3.png")
                        .arg(scene["name"].toString(), chinese ? "zh" : "en", dark ? "dark" : "light");
  auto faults = host.grab().save(folder.filePath(name)) ? host.faults() : QStringList{"cannot be written"};
  for (const auto& expected : scene["shows"].toArray()) {
    if (!host.texts().contains(stage.text(expected))) faults.append(stage.text(expected) + ": missing");
  }
  for (const auto& fault : faults)
    std::fprintf(stderr, "%s: %s\n", qUtf8Printable(name), qUtf8Printable(fault));
  return faults.isEmpty();
}

} // namespace
} // namespace tolvera::test

int main(int argc, char** argv) {
  using namespace tolvera::test;
  if (argc < 2) {
    std::fputs("usage: tolvera-gallery FOLDER [WORD]   draws the scenes that have WORD in their name\n",
               stderr);
    return 2;
  }
  const Offscreen offscreen(argc, argv);
  const QDir folder(QString::fromLocal8Bit(argv[1]));
  folder.mkpath(".");
  int drawn = 0;
  bool whole = true;
  for (const auto& entry : allScenes()["scenes"].toArray()) {
    const auto scene = entry.toObject();
    if (argc > 2 && !scene["name"].toString().contains(argv[2])) continue;
    for (const int variant : {0, 1, 2, 3}) {
      whole = draw(scene, folder, variant < 2, variant % 2 != 0) && whole;
      ++drawn;
    }
  }
  std::printf("%d pictures in %s\n", drawn, argv[1]);
  return drawn > 0 && whole ? 0 : 1;
}

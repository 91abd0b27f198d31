#include "ShellTests/DesktopFixture.h"

#include <QColor>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QPixmap>
#include <QRasterWindow>
#include <QScreen>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace tolvera::test {

namespace {

constexpr int patience = 10'000; // milliseconds

struct Line {
  std::string text;
  bool kept;
};

std::vector<Line>& table() {
  static std::vector<Line> lines;
  return lines;
}

// Fills the screen and writes down the keys that it is given.
class OtherWindow final : public QRasterWindow {
 public:
  explicit OtherWindow(const char* keys) : keys_(QString::fromUtf8(keys)) {
    setTitle(QStringLiteral("other program"));
    if (!keys_.open(QIODevice::WriteOnly | QIODevice::Append)) qFatal("cannot write keys");
  }

 protected:
  void paintEvent(QPaintEvent*) override { QPainter(this).fillRect(QRect(QPoint(0, 0), size()), otherColor); }
  void keyPressEvent(QKeyEvent* event) override {
    keys_.write(event->text().toUtf8());
    keys_.flush();
  }

 private:
  QFile keys_;
};

} // namespace

bool eventually(const std::function<bool()>& condition) {
  QElapsedTimer timer;
  timer.start();
  while (!condition()) {
    if (timer.elapsed() > patience) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    usleep(2'000);
  }
  return true;
}

void settleDesktop() {
  QElapsedTimer timer;
  timer.start();
  QImage before;
  // Until nothing has changed on the screen for a while.
  eventually([&] {
    const auto now = screenshot();
    if (now != before) timer.restart();
    before = now;
    return timer.elapsed() > 300;
  });
}

std::string xdotool(std::vector<std::string> words) {
  words.insert(words.begin(), "xdotool");
  auto output = outputOf(std::move(words));
  while (!output.empty() && output.back() == '\n') output.pop_back();
  return output;
}

void movePointer(QPoint to) {
  xdotool({"mousemove", std::to_string(to.x()), std::to_string(to.y())});
  settleDesktop();
}

void press(QPoint at) {
  movePointer(at);
  xdotool({"mousedown", "1"});
  settleDesktop();
}

void release() {
  xdotool({"mouseup", "1"});
  settleDesktop();
}

void drag(QPoint from, QPoint to) {
  press(from);
  movePointer((from + to) / 2);
  movePointer(to);
  release();
}

QImage screenshot() { return QGuiApplication::primaryScreen()->grabWindow(0).toImage(); }

bool resembles(const QColor& color, const QColor& other) {
  const auto near = [](int a, int b) { return std::abs(a - b) <= 3; };
  return near(color.red(), other.red()) && near(color.green(), other.green()) &&
         near(color.blue(), other.blue());
}

void promise(const std::string& text, bool kept) {
  table().push_back({text, kept});
  EXPECT_TRUE(kept) << text;
}

void printPromises() {
  std::printf("\n%s\n", qEnvironmentVariable("TOLVERA_WINDOW_MANAGER").toUtf8().constData());
  for (const auto& [text, kept] : table()) std::printf("  %-4s %s\n", kept ? "yes" : "NO", text.c_str());
}

ChildProcess startOtherProgram(const std::string& keys) {
  ChildProcess other({"/proc/self/exe", "--other-program", keys});
  const auto fillsTheScreen = [] {
    const auto image = screenshot();
    return resembles(image.pixelColor(3, 3), otherColor) &&
           resembles(image.pixelColor(image.width() - 3, image.height() - 3), otherColor);
  };
  if (!eventually(fillsTheScreen)) ADD_FAILURE() << "the other program does not fill the screen";
  settleDesktop();
  return other;
}

int runOtherProgram(const char* keys) {
  OtherWindow window(keys);
  window.showFullScreen();
  window.requestActivate();
  return QGuiApplication::exec();
}

} // namespace tolvera::test

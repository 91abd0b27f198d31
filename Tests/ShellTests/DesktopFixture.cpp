#include "ShellTests/DesktopFixture.h"

#include "ShellTests/DesktopControl.h"

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

// Milliseconds.
constexpr int patience = 10'000;
constexpr int dragStep = 8;

constexpr int dragSteps = 16;

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

// Runs the event loop for that many milliseconds.
void runFor(int milliseconds) {
  QElapsedTimer timer;
  timer.start();
  while (timer.elapsed() < milliseconds) {
    QCoreApplication::processEvents();
    usleep(500);
  }
}

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

void movePointer(QPoint to) {
  desktop().movePointer(to);
  settleDesktop();
}

void press(QPoint at) {
  // As a hand does, which comes near before it is there.
  movePointer(at - QPoint(1, 1));
  movePointer(at);
  desktop().pressButton();
  settleDesktop();
}

void release() {
  desktop().releaseButton();
  settleDesktop();
}

void drag(QPoint from, QPoint to) {
  press(from);
  for (int left = dragSteps - 1; left >= 0; --left) {
    desktop().movePointer(to - (to - from) * left * left / (dragSteps * dragSteps));
    runFor(dragStep);
  }
  settleDesktop();
  release();
}

QImage screenshot() { return desktop().screenshot(); }

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

ChildProcess startOtherProgram(const std::string& keys, const std::string& platform) {
  ChildProcess other({"/proc/self/exe", "--other-program", keys, "-platform", platform});
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

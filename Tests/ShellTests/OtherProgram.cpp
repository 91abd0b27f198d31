#include <QFile>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QRasterWindow>

#include <unistd.h>

namespace {

// Another program: its window fills the screen in one colour, and it prints the keys that it is given.
class OtherWindow final : public QRasterWindow {
 public:
  OtherWindow() {
    setTitle(QStringLiteral("other program"));
    if (!output_.open(STDOUT_FILENO, QIODevice::WriteOnly | QIODevice::Unbuffered)) qFatal("no output");
  }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter(this).fillRect(QRect(QPoint(0, 0), size()), QColor(200, 40, 160));
  }
  void keyPressEvent(QKeyEvent* event) override { output_.write(event->text().toUtf8()); }

 private:
  QFile output_;
};

} // namespace

int main(int argc, char** argv) {
  const QGuiApplication application(argc, argv);
  OtherWindow window;
  window.showFullScreen();
  window.requestActivate();
  return QGuiApplication::exec();
}

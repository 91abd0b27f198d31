#include "ShellTests/DesktopControl.h"

#include "Harness/ChildProcess.h"

#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QPixmap>
#include <QScreen>
#include <QtEndian>

#include <memory>
#include <stdexcept>

namespace tolvera::test {

namespace {

bool isSway() { return qEnvironmentVariable("TOLVERA_WINDOW_MANAGER") == QStringLiteral("sway"); }

class X11Control final : public DesktopControl {
 public:
  void movePointer(QPoint to) override {
    xdotool({"mousemove", std::to_string(to.x()), std::to_string(to.y())});
  }
  void pressButton() override { xdotool({"mousedown", "1"}); }
  void releaseButton() override { xdotool({"mouseup", "1"}); }
  [[nodiscard]] int inaccuracy() const override { return 0; }
  void type(const std::string& letters) override { xdotool({"type", letters}); }
  std::string focus() override { return xdotool({"getwindowfocus"}) + " " + xdotool({"getactivewindow"}); }
  void showWorkspace(int number) override { xdotool({"set_desktop", std::to_string(number)}); }
  QImage screenshot() override {
    auto* const screen = QGuiApplication::primaryScreen();
    const auto all = screen->virtualSize();
    return screen->grabWindow(0, 0, 0, all.width(), all.height()).toImage();
  }
};

// A pointer and a keyboard lent to the desktop over the remote frame buffer protocol.
class RemoteInput {
 public:
  explicit RemoteInput(const QString& path) {
    server_.connectToServer(path);
    server_.waitForConnected();
    say(read(12)); // its version
    read(read(1).at(0));
    say(QByteArray(1, 1)); // no authentication
    read(4);
    say(QByteArray(1, 1)); // shared with others
    const auto greeting = read(24);
    read(static_cast<int>(qFromBigEndian<quint32>(greeting.constData() + 20)));
  }

  void pointer(QPoint at, bool pressed) {
    QByteArray message(6, 0);
    message[0] = 5;
    message[1] = pressed ? 1 : 0;
    qToBigEndian(static_cast<quint16>(at.x()), message.data() + 2);
    qToBigEndian(static_cast<quint16>(at.y()), message.data() + 4);
    say(message);
  }
  void key(char letter, bool pressed) {
    QByteArray message(8, 0);
    message[0] = 4;
    message[1] = pressed ? 1 : 0;
    message[7] = letter;
    say(message);
  }

 private:
  void say(const QByteArray& message) {
    server_.write(message);
    server_.flush();
  }
  QByteArray read(int size) {
    while (server_.bytesAvailable() < size) {
      if (!server_.waitForReadyRead()) throw std::runtime_error("the desktop lends no pointer");
    }
    return server_.read(size);
  }

  QLocalSocket server_;
};

// Only the compositor knows where the pointer is, what has the keyboard and what the screen looks like.
class SwayControl final : public DesktopControl {
 public:
  void movePointer(QPoint to) override {
    pointer_ = to;
    input_.pointer(pointer_, pressed_);
  }
  void pressButton() override {
    pressed_ = true;
    input_.pointer(pointer_, pressed_);
  }
  void releaseButton() override {
    pressed_ = false;
    input_.pointer(pointer_, pressed_);
  }
  [[nodiscard]] int inaccuracy() const override { return 1; } // it is not bound to whole points
  void type(const std::string& letters) override {
    for (const char letter : letters) {
      input_.key(letter, true);
      input_.key(letter, false);
    }
  }
  std::string focus() override {
    const auto tree = outputOf({"swaymsg", "--raw", "--type", "get_tree"});
    return focusIn(QJsonDocument::fromJson(QByteArray::fromStdString(tree)).object());
  }
  void showWorkspace(int number) override { outputOf({"swaymsg", "workspace", std::to_string(number + 1)}); }
  QImage screenshot() override {
    const auto picture = outputOf({"grim", "-s", "1", "-t", "ppm", "-"});
    return QImage::fromData(QByteArray::fromStdString(picture), "PPM");
  }

 private:
  static std::string focusIn(const QJsonObject& node) {
    if (node["focused"].toBool()) return std::to_string(node["id"].toInt());
    for (const auto* children : {"nodes", "floating_nodes"}) {
      for (const auto& child : node[QLatin1String(children)].toArray()) {
        auto found = focusIn(child.toObject());
        if (!found.empty()) return found;
      }
    }
    return {};
  }

  RemoteInput input_{qEnvironmentVariable("TOLVERA_REMOTE_INPUT")};
  QPoint pointer_;
  bool pressed_ = false;
};

} // namespace

DesktopControl& desktop() {
  static const auto control = []() -> std::unique_ptr<DesktopControl> {
    if (isSway()) return std::make_unique<SwayControl>();
    return std::make_unique<X11Control>();
  }();
  return *control;
}

std::vector<std::string> desktopPlatforms() {
  return isSway() ? std::vector<std::string>{"wayland", "xcb"} : std::vector<std::string>{"xcb"};
}

std::string xdotool(std::vector<std::string> words) {
  words.insert(words.begin(), "xdotool");
  auto output = outputOf(std::move(words));
  while (!output.empty() && output.back() == '\n') output.pop_back();
  return output;
}

} // namespace tolvera::test

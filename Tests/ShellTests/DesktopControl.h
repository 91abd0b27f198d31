#pragma once

#include <QImage>
#include <QPoint>

#include <string>
#include <vector>

namespace tolvera::test {

// The desktop that the tests run on, as a user's hands and eyes have it. One thread, with the application
// object made.
class DesktopControl {
 public:
  virtual ~DesktopControl() = default;

  virtual void movePointer(QPoint to) = 0;
  virtual void pressButton() = 0;
  virtual void releaseButton() = 0;
  // How many points the pointer may be away from where it was moved.
  [[nodiscard]] virtual int inaccuracy() const = 0;
  // Letters, to whatever has the keyboard.
  virtual void type(const std::string& letters) = 0;
  // Tells what has the keyboard and is in front; equal while that is the same.
  virtual std::string focus() = 0;
  // Goes to one of two workspaces, 0 or 1.
  virtual void showWorkspace(int number) = 0;
  virtual QImage screenshot() = 0;
};

// The one that on-desktop has started.
DesktopControl& desktop();
// Qt's platforms that another program on it may use.
std::vector<std::string> desktopPlatforms();

// Runs xdotool with these words and gives what it prints, without the line feed at the end.
std::string xdotool(std::vector<std::string> words);

} // namespace tolvera::test

#pragma once

#include "Platform/Platform.h"

#include <QString>

#include <functional>

namespace tolvera {

// A question put to the user before anything else, with two buttons.
struct Alert {
  QString message;
  QString detail;
  QString firstButton;
  QString secondButton;
};

// Puts the question and waits for the answer: whether it was the first button. Main thread.
using RunAlert = std::function<bool(const Alert&)>;

// macOS starts what was only downloaded from a read-only copy in a temporary place, where it cannot work. The
// user is then asked to move the application, and it ends.
namespace LocationCheck {

// False if an application at `path` must end. Then the user has been told, in the language of the system, as
// no setting has been made yet, and the folder for applications has been opened at the press of the first
// button. Other desktops have no such place. Main thread.
[[nodiscard]] bool passes(const QString& path, const platform::Platform& platform, const RunAlert& runAlert);

} // namespace LocationCheck
} // namespace tolvera

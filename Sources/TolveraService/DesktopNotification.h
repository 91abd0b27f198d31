#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

struct sd_bus;

namespace tolvera::service {

// One notification of the desktop (org.freedesktop.Notifications) that changes in its place. One thread; a
// call waits up to 10 s for the host. All but `close` throw std::runtime_error if the host is lost.
class DesktopNotification {
 public:
  struct Text {
    std::string title;
    std::string body;                // plain
    std::string action = {};         // the label of its button; empty for none
    std::optional<int> percent = {}; // of work under way, 0 to 100
  };
  enum class Answer { action, closed, stopped };

  // Throws std::runtime_error where no session bus, or no host that shows buttons, can be had.
  DesktopNotification();

  // Shows the text in place of the one before.
  void show(const Text& text);
  // True if it has been taken away since it was shown.
  [[nodiscard]] bool isClosed();
  // Waits until the user answers what is shown, or `stop`.
  Answer wait(const std::stop_token& stop);
  void close() noexcept;

 private:
  struct Signals;
  void takeSignals();

  std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> bus_;
  bool takesMarkup_ = false;
  std::uint32_t id_ = 0; // 0: nothing is shown
  std::optional<Answer> answer_;
};

} // namespace tolvera::service

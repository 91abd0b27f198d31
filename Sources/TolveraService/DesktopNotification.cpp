#include "TolveraService/DesktopNotification.h"

#include "TolveraService/Http/PageMarkup.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace tolvera::service {

namespace {

constexpr const char* host = "org.freedesktop.Notifications"; // its interface too
constexpr const char* place = "/org/freedesktop/Notifications";
constexpr const char* program = "org.tolvera.Tolvera"; // its desktop entry and icon
constexpr const char* button = "act";                  // "default" would be a click anywhere
constexpr std::uint64_t microsecondsToAnswer = 10'000'000;
constexpr int untilTaken = 0; // how long it is shown
constexpr int asUsual = -1;

using Message = std::unique_ptr<sd_bus_message, sd_bus_message* (*)(sd_bus_message*)>;

int checked(int result) {
  if (result < 0) throw std::runtime_error(std::generic_category().message(-result));
  return result;
}

Message newCall(sd_bus* bus, const char* method) {
  sd_bus_message* call = nullptr;
  checked(::sd_bus_message_new_method_call(bus, &call, host, place, host, method));
  return {call, &::sd_bus_message_unref};
}

Message answerTo(sd_bus* bus, const Message& call) {
  sd_bus_error error{};
  sd_bus_message* reply = nullptr;
  if (::sd_bus_call(bus, call.get(), microsecondsToAnswer, &error, &reply) < 0) {
    const std::string text = error.message != nullptr ? error.message : "the session bus is lost";
    ::sd_bus_error_free(&error);
    throw std::runtime_error(text);
  }
  return {reply, &::sd_bus_message_unref};
}

} // namespace

struct DesktopNotification::Signals {
  // The identifier of the notification that a signal is about; 0 if it is another one.
  static bool isOurs(const DesktopNotification& ours, sd_bus_message* signal) {
    std::uint32_t id = 0;
    return ::sd_bus_message_read(signal, "u", &id) > 0 && id != 0 && id == ours.id_;
  }

  static int action(sd_bus_message* signal, void* self, sd_bus_error*) {
    auto& ours = *static_cast<DesktopNotification*>(self);
    const char* key = nullptr;
    if (isOurs(ours, signal) && ::sd_bus_message_read(signal, "s", &key) > 0 &&
        key == std::string_view(button)) {
      ours.close(); // some hosts have closed it by now, and some have not
      ours.answer_ = Answer::action;
    }
    return 0;
  }

  static int closed(sd_bus_message* signal, void* self, sd_bus_error*) {
    auto& ours = *static_cast<DesktopNotification*>(self);
    if (isOurs(ours, signal)) {
      ours.id_ = 0;
      ours.answer_ = Answer::closed;
    }
    return 0;
  }
};

DesktopNotification::DesktopNotification() : bus_(nullptr, &::sd_bus_flush_close_unref) {
  sd_bus* bus = nullptr;
  checked(::sd_bus_open_user(&bus));
  bus_.reset(bus);
  const Message reply = answerTo(bus, newCall(bus, "GetCapabilities"));
  bool showsButtons = false;
  checked(::sd_bus_message_enter_container(reply.get(), 'a', "s"));
  for (const char* name = nullptr; checked(::sd_bus_message_read(reply.get(), "s", &name)) > 0;) {
    showsButtons = showsButtons || name == std::string_view("actions");
    takesMarkup_ = takesMarkup_ || name == std::string_view("body-markup");
  }
  if (!showsButtons) throw std::runtime_error("the desktop's notifications have no buttons");
  checked(::sd_bus_match_signal(bus, nullptr, host, place, host, "ActionInvoked", &Signals::action, this));
  checked(
      ::sd_bus_match_signal(bus, nullptr, host, place, host, "NotificationClosed", &Signals::closed, this));
}

void DesktopNotification::show(const Text& text) {
  const std::string body = takesMarkup_ ? escapedHTML(text.body) : text.body;
  const Message call = newCall(bus_.get(), "Notify");
  sd_bus_message* const to = call.get();
  checked(::sd_bus_message_append(to, "susss", "Tolvera", id_, program, text.title.c_str(), body.c_str()));
  if (text.action.empty()) {
    checked(::sd_bus_message_append(to, "as", 0));
  } else {
    checked(::sd_bus_message_append(to, "as", 2, button, text.action.c_str()));
  }
  if (text.percent) {
    checked(
        ::sd_bus_message_append(to, "a{sv}", 2, "desktop-entry", "s", program, "value", "i", *text.percent));
  } else {
    checked(::sd_bus_message_append(to, "a{sv}", 1, "desktop-entry", "s", program));
  }
  const bool stays = !text.action.empty() || text.percent;
  checked(::sd_bus_message_append(to, "i", stays ? untilTaken : asUsual));
  checked(::sd_bus_message_read(answerTo(bus_.get(), call).get(), "u", &id_));
  answer_.reset();
}

void DesktopNotification::takeSignals() {
  while (checked(::sd_bus_process(bus_.get(), nullptr)) > 0) {
  }
}

bool DesktopNotification::isClosed() {
  takeSignals();
  return answer_ == Answer::closed;
}

DesktopNotification::Answer DesktopNotification::wait(const std::stop_token& stop) {
  struct Bell {
    int descriptor = ::eventfd(0, EFD_CLOEXEC);
    ~Bell() { ::close(descriptor); }
  };
  const Bell bell;
  const std::stop_callback ring(stop, [&bell] { ::eventfd_write(bell.descriptor, 1); });
  while (!stop.stop_requested()) {
    takeSignals();
    if (answer_) return *answer_;
    const int events = checked(::sd_bus_get_events(bus_.get()));
    std::array<pollfd, 2> sources{
        {{bell.descriptor, POLLIN, 0}, {::sd_bus_get_fd(bus_.get()), static_cast<short>(events), 0}}};
    if (::poll(sources.data(), sources.size(), -1) < 0 && errno != EINTR) checked(-errno);
  }
  return Answer::stopped;
}

void DesktopNotification::close() noexcept {
  if (id_ == 0) return;
  ::sd_bus_call_method_async(bus_.get(), nullptr, host, place, host, "CloseNotification", nullptr, nullptr,
                             "u", id_);
  id_ = 0;
}

} // namespace tolvera::service

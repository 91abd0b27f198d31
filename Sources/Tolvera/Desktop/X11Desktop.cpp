#include "Tolvera/Desktop/X11Desktop.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace tolvera::X11Desktop {

namespace {

template<typename T>
using Reply = std::unique_ptr<T, decltype([](void* reply) { std::free(reply); })>;

xcb_connection_t* connection() {
  const auto* const x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  return x11 ? x11->connection() : nullptr;
}

xcb_atom_t atom(xcb_connection_t* x, const QByteArray& name) {
  const auto cookie = xcb_intern_atom(x, 0, static_cast<std::uint16_t>(name.size()), name.constData());
  const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(x, cookie, nullptr));
  return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

// To X all monitors of a desktop are one screen, the first.
xcb_window_t ownerOf(const QByteArray& selection) {
  auto* const x = connection();
  if (!x) return XCB_WINDOW_NONE;
  const auto cookie = xcb_get_selection_owner(x, atom(x, selection));
  const Reply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(x, cookie, nullptr));
  return reply ? reply->owner : xcb_window_t{XCB_WINDOW_NONE};
}

bool hasOwner(const QByteArray& selection) { return ownerOf(selection) != XCB_WINDOW_NONE; }

} // namespace

// The X server of a Wayland compositor names its screens XWAYLAND0 and so on.
bool isReachable() {
  const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> x(xcb_connect(nullptr, nullptr),
                                                                       &xcb_disconnect);
  return xcb_connection_has_error(x.get()) == 0;
}

bool isInsideWayland() {
  const auto* const screen = QGuiApplication::primaryScreen();
  return connection() && screen && screen->name().startsWith(QStringLiteral("XWAYLAND"));
}

bool hasCompositor() { return hasOwner("_NET_WM_CM_S0"); }

bool hasEmbeddingTray() { return hasOwner("_NET_SYSTEM_TRAY_S0"); }

std::optional<QColor> embeddingTrayColor() {
  const auto tray = ownerOf("_NET_SYSTEM_TRAY_S0");
  if (tray == XCB_WINDOW_NONE) return std::nullopt;
  auto* const x = connection();
  // Red, green and blue of 16 bits for symbols, then for symbols that warn.
  const auto cookie =
      xcb_get_property(x, 0, tray, atom(x, "_NET_SYSTEM_TRAY_COLORS"), XCB_ATOM_CARDINAL, 0, 3);
  const Reply<xcb_get_property_reply_t> reply(xcb_get_property_reply(x, cookie, nullptr));
  if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 12) return std::nullopt;
  const auto* const parts = static_cast<const std::uint32_t*>(xcb_get_property_value(reply.get()));
  const auto part = [parts](int index) { return static_cast<ushort>(std::min(parts[index], 0xFFFFU)); };
  return QColor::fromRgba64(part(0), part(1), part(2));
}

void activate(const QWindow& window) {
  auto* const x = connection();
  if (!x) return;
  constexpr std::uint32_t askedForByUser = 2; // the source of a task bar, which no window manager refuses
  xcb_client_message_event_t message{};
  message.response_type = XCB_CLIENT_MESSAGE;
  message.format = 32;
  message.window = static_cast<xcb_window_t>(window.winId());
  message.type = atom(x, "_NET_ACTIVE_WINDOW");
  message.data.data32[0] = askedForByUser;
  const auto root = xcb_setup_roots_iterator(xcb_get_setup(x)).data->root;
  xcb_send_event(x, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                 reinterpret_cast<const char*>(&message));
  xcb_flush(x);
}

WindowOrder::WindowOrder() {
  auto* const x = connection();
  if (!x) return;
  stacking_ = atom(x, "_NET_CLIENT_LIST_STACKING");
  active_ = atom(x, "_NET_ACTIVE_WINDOW");
  qGuiApp->installNativeEventFilter(this);
}

WindowOrder::~WindowOrder() { qGuiApp->removeNativeEventFilter(this); }

bool WindowOrder::nativeEventFilter(const QByteArray&, void* message, qintptr*) {
  const auto* const event = static_cast<const xcb_generic_event_t*>(message);
  if ((event->response_type & 0x7F) != XCB_PROPERTY_NOTIFY) return false;
  const auto* const property = static_cast<const xcb_property_notify_event_t*>(message);
  if (property->atom == stacking_ || property->atom == active_) Q_EMIT changed();
  return false;
}

} // namespace tolvera::X11Desktop

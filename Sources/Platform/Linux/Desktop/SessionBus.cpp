#include "Platform/Linux/Desktop/SessionBus.h"

#include <gio/gio.h>

#include <memory>
#include <string_view>

namespace tolvera::adapters {

namespace {

constexpr int patience = 1000; // ms

bool lists(GDBusConnection* bus, const char* method, std::string_view name) {
  const std::unique_ptr<GVariant, decltype(&g_variant_unref)> reply(
      g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                  "org.freedesktop.DBus", method, nullptr, G_VARIANT_TYPE("(as)"),
                                  G_DBUS_CALL_FLAGS_NONE, patience, nullptr, nullptr),
      &g_variant_unref);
  if (!reply) return false;
  GVariantIter* names = nullptr;
  g_variant_get(reply.get(), "(as)", &names);
  const std::unique_ptr<GVariantIter, decltype(&g_variant_iter_free)> guard(names, &g_variant_iter_free);
  const char* each = nullptr;
  while (g_variant_iter_next(names, "&s", &each) != FALSE) {
    if (name == each) return true;
  }
  return false;
}

} // namespace

bool SessionBus::offers(const char* name) {
  const std::unique_ptr<GDBusConnection, decltype(&g_object_unref)> bus(
      g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr), &g_object_unref);
  return bus && (lists(bus.get(), "ListNames", name) || lists(bus.get(), "ListActivatableNames", name));
}

} // namespace tolvera::adapters

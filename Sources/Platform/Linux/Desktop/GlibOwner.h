#pragma once

#include <glib-object.h>

#include <memory>
#include <optional>
#include <string>

namespace tolvera::adapters {

template<auto release>
struct GlibRelease {
  template<typename Value>
  void operator()(Value* value) const {
    release(value);
  }
};

// Owners of what GLib hands out.
using GlibText = std::unique_ptr<gchar, GlibRelease<g_free>>;
using GlibTexts = std::unique_ptr<gchar*, GlibRelease<g_strfreev>>;
template<typename Object>
using GlibObject = std::unique_ptr<Object, GlibRelease<g_object_unref>>;

// Takes the text over; absent for a null pointer.
inline std::optional<std::string> takeText(gchar* text) {
  const GlibText owner(text);
  return text ? std::optional<std::string>(text) : std::nullopt;
}

} // namespace tolvera::adapters

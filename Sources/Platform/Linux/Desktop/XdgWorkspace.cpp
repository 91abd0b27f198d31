#include "Platform/Linux/Desktop/XdgWorkspace.h"

#include <gio/gio.h>

#include <array>
#include <memory>
#include <string>
#include <string_view>

namespace tolvera::adapters {

namespace {

using Application = std::unique_ptr<GAppInfo, decltype(&g_object_unref)>;

// The first that is installed; null if none is. A desktop's settings are installed with it, so the first one
// found belongs to this desktop. Mixers come last.
Application soundSettings() {
  constexpr std::array entries = {"gnome-sound-panel.desktop",
                                  "kcm_pulseaudio.desktop",
                                  "cinnamon-settings-sound.desktop",
                                  "mate-volume-control.desktop",
                                  "org.pulseaudio.pavucontrol.desktop",
                                  "pavucontrol.desktop",
                                  "pavucontrol-qt.desktop"};
  Application found(nullptr, &g_object_unref);
  GList* const installed = g_app_info_get_all();
  for (const std::string_view entry : entries) {
    for (GList* item = installed; item && !found; item = item->next) {
      auto* const info = static_cast<GAppInfo*>(item->data);
      const char* const id = g_app_info_get_id(info);
      if (id && entry == id) found.reset(G_APP_INFO(g_object_ref(info)));
    }
  }
  g_list_free_full(installed, g_object_unref);
  return found;
}

} // namespace

bool XdgWorkspace::openURL(const platform::URL& url) {
  const auto scheme = url.scheme_id();
  if ((scheme != boost::urls::scheme::http && scheme != boost::urls::scheme::https) || url.host().empty())
    return false;
  const platform::URL located = locate_(url);
  const std::string address(located.buffer());
  // Without a shell: GIO splits the browser's Exec line and passes the address as one argument.
  return g_app_info_launch_default_for_uri(address.c_str(), nullptr, nullptr);
}

bool XdgWorkspace::openFolder(const std::string& path) {
  const std::unique_ptr<char, decltype(&g_free)> address(g_filename_to_uri(path.c_str(), nullptr, nullptr),
                                                         &g_free);
  return address && g_app_info_launch_default_for_uri(address.get(), nullptr, nullptr);
}

bool XdgWorkspace::openMicrophoneSettings() {
  const auto settings = soundSettings();
  return settings && g_app_info_launch(settings.get(), nullptr, nullptr, nullptr);
}

bool XdgWorkspace::hasMicrophoneSettings() { return soundSettings() != nullptr; }

} // namespace tolvera::adapters

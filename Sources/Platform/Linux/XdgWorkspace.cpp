#include "Platform/Linux/XdgWorkspace.h"

#include <gio/gio.h>

#include <string>

namespace tolvera::adapters {

bool XdgWorkspace::openURL(const platform::URL& url) {
  const auto scheme = url.scheme_id();
  if ((scheme != boost::urls::scheme::http && scheme != boost::urls::scheme::https) || url.host().empty())
    return false;
  const std::string address(url.buffer());
  // No shell takes part: the browser's desktop entry is split by GIO and started with the address as one
  // argument.
  return g_app_info_launch_default_for_uri(address.c_str(), nullptr, nullptr);
}

} // namespace tolvera::adapters

#pragma once

#include "Platform/FileManager.h"

#include <optional>
#include <string>
#include <string_view>

namespace tolvera {

// The account's bearer token on disk, one file for each server, so that each server is only sent its own
// token. Main thread. No call fails: a token that cannot be saved is absent at the next start.
//
// `server` is the absolute text form of the service's base URL.
namespace TokenStore {

// Absent if there is no readable token; the empty text if its file is blank.
[[nodiscard]] std::optional<std::string> load(const platform::FileManager& files, std::string_view server);
void save(platform::FileManager& files, std::string_view token, std::string_view server);
void clear(platform::FileManager& files, std::string_view server);

} // namespace TokenStore

} // namespace tolvera

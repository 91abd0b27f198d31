#pragma once

#include "Platform/FileManager.h"

#include <optional>
#include <string>
#include <string_view>

namespace tolvera {

// The account's bearer token on disk, one file for each server, so that no server is sent another's token.
// Called on the main thread. Nothing here fails towards the caller: a token that cannot be saved is just
// not there at the next start.
//
// `server` is the absolute text form of the service's base URL.
namespace TokenStore {

// Absent if there is no readable token; the empty text if its file is blank.
[[nodiscard]] std::optional<std::string> load(const platform::FileManager& files, std::string_view server);
void save(platform::FileManager& files, std::string_view token, std::string_view server);
void clear(platform::FileManager& files, std::string_view server);

} // namespace TokenStore

} // namespace tolvera

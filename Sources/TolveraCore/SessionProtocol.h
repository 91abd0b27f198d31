#pragma once

#include "TolveraCore/TranslateSession.h"

#include <optional>
#include <string_view>

// The frames that a session sends and understands. Pure functions; any thread.
namespace tolvera::SessionProtocol {

// The frame that ends a run.
inline constexpr std::string_view stopFrame = R"({"type":"stop"})";

// The address of the web socket: the base with ws instead of http, with "/ws" appended and all parameters of
// the run in the query.
platform::URL socketURL(const platform::URL& baseURL, std::string_view token,
                        const TranslateSession::Config& config);

// The event that a text frame means; absent if the frame is malformed or of an unknown kind.
std::optional<TranslateSession::Event> event(std::string_view textFrame);

} // namespace tolvera::SessionProtocol

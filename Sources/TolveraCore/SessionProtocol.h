#pragma once

#include "TolveraCore/TranslateSession.h"

#include <optional>
#include <string_view>

// What a session says on the wire and understands of it. Pure functions; any thread.
namespace tolvera::SessionProtocol {

// The frame that ends a run.
inline constexpr std::string_view stopFrame = R"({"type":"stop"})";

// The address of the socket: the base with its scheme turned from http to ws, "/ws" appended, and all the
// parameters of the run in the query.
platform::URL socketURL(const platform::URL& baseURL, std::string_view token,
                        const TranslateSession::Config& config);

// What a text frame says; nothing if it is malformed or of no known kind.
std::optional<TranslateSession::Event> event(std::string_view textFrame);

} // namespace tolvera::SessionProtocol

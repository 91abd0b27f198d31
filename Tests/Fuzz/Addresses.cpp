#include "Fuzz/Fuzz.h"

#include "TolveraCore/SessionProtocol.h"

#include <string>

// Addresses of the settings and of a service's replies, up to the address of the web socket.
void tolvera::test::fuzz(std::string_view input) {
  const auto url = platform::parseURL(input);
  if (!url) return;
  const auto again = platform::parseURL(url->buffer());
  require(again && again->buffer() == url->buffer(), "an address that was read reads as itself");
  if (url->scheme() != "http" && url->scheme() != "https") return;
  const auto socket = SessionProtocol::socketURL(*url, "token", {});
  require(socket.scheme() == "ws" || socket.scheme() == "wss", "the socket's scheme is that of web sockets");
}

#include "Fuzz/Fuzz.h"

#include "Fakes/ScriptedURLSession.h"
#include "Harness/TestLoop.h"
#include "Platform/PlatformError.h"
#include "TolveraCore/API.h"

#include <string>

// The records of the account's service; the first byte chooses the status.
void tolvera::test::fuzz(std::string_view input) {
  if (input.empty()) return;
  TestLoop loop;
  ScriptedURLSession network;
  const API api{platform::URL("http://h:1/base"), network};
  const std::string body(input.substr(1));
  for (const auto* path : {"/api/signup", "/api/me"})
    network.reply(path, input.front() % 2 == 0 ? 200 : 402, body);
  try {
    (void)loop.run(api.me("token"));
  } catch (const std::exception&) { // refused in words
  }
  try {
    (void)loop.run(api.signup());
  } catch (const std::exception&) {
  }
}

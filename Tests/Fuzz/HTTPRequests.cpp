#include "Fuzz/Fuzz.h"

#include "ServiceTests/Clients.h"
#include "ServiceTests/RunningServer.h"

#include <boost/algorithm/string/replace.hpp>

// The bytes of a connection to the local service. Its port stands in the input as "PORT".
void tolvera::test::fuzz(std::string_view input) {
  static auto& server = *new RunningServer(0); // ends with the process
  static const HTTPClient client(server->port());
  static const std::string token = client.signUp();
  static const std::string account = client.get("/livetranslate/api/me", token).body;
  std::string bytes(input);
  boost::algorithm::replace_all(bytes, "PORT", std::to_string(server->port()));
  // The fuzzer's alarm interrupts the calls of the main thread.
  std::thread([&bytes] {
    const unsigned status = client.raw(bytes).status;
    require(status != 500 && status != 503, "no request is a fault of the service");
    require(client.get("/livetranslate/api/me", token).body == account, "no stranger changes an account");
  }).join();
}

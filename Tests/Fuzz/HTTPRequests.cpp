#include "Fuzz/Fuzz.h"

#include "ServiceTests/Clients.h"
#include "ServiceTests/RunningServer.h"

#include <boost/algorithm/string/replace.hpp>

// The bytes of a connection to the local service. Its port stands in the input as "PORT".
void tolvera::test::fuzz(std::string_view input) {
  static auto& server = *new RunningServer(0); // ends with the process
  static const HTTPClient client(server->port());
  static const std::string token = client.signUp();
  const auto readAccount = [] {
    HTTPReply reply; // none if the fuzzer's alarm has interrupted the request
    while (reply.status == 0) reply = client.get("/livetranslate/api/me", token);
    return reply.body;
  };
  static const std::string account = readAccount();
  std::string bytes(input);
  boost::algorithm::replace_all(bytes, "PORT", std::to_string(server->port()));
  const unsigned status = client.raw(bytes).status;
  require(status != 500 && status != 503, "no request is a fault of the service");
  require(readAccount() == account, "no stranger changes an account");
}

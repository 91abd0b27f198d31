#include "Fuzz/Fuzz.h"

#include "Harness/TemporaryDirectory.h"
#include "TolveraService/Http/Routes.h"
#include "TolveraService/Models/ModelCatalogue.h"
#include "TolveraService/Stream/StreamProtocol.h"

#include <string>

// What reaches the local service: addresses with a query, forms, records, and the catalogue of models. Lines
// of the input are the parts of a request.
void tolvera::test::fuzz(std::string_view input) {
  (void)service::parseStreamParameters(input);
  (void)service::isStopFrame(input);
  try {
    (void)service::parseModelCatalogue(input);
  } catch (const std::runtime_error&) { // refused in words
  }

  static const TemporaryDirectory directory;
  static service::AccountStore accounts(directory.path() / "state");
  static service::Routes routes(accounts, {"Tina"});
  const auto part = [&input] {
    const auto line = input.substr(0, input.find('\n'));
    input.remove_prefix(std::min(input.size(), line.size() + 1));
    return std::string(line);
  };
  service::Request request;
  request.method = part();
  request.target = std::string(service::Routes::base) + part();
  request.host = "127.0.0.1:18790";
  request.authorization = part();
  request.contentType = part();
  request.acceptLanguage = part();
  request.cookie = part();
  request.body = std::string(input);
  const auto response = routes.answer(request);
  require(response.status >= 200 && response.status < 600, "every request has an answer");
  for (const auto& [name, value] : response.headers)
    require(value.find_first_of("\r\n") == value.npos, "no header holds a line break");
}

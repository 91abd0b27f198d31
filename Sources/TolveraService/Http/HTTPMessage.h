#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tolvera::service {

// One request and its answer as the routes see them, without the network around them.
struct Request {
  std::string method;
  std::string target; // as sent: path and query
  std::string host;
  std::string authorization;
  std::string contentType;
  std::string acceptLanguage;
  std::string cookie;
  std::string body;
};

struct Response {
  unsigned status = 200;
  std::string contentType = "application/json";
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
};

} // namespace tolvera::service

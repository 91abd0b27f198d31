#pragma once

#include "TolveraService/Transfer/HTTPTransfer.h"

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// A server that the user has named, as the command line tells of it.
struct ServerChoice {
  std::string address;           // the base of its interface, such as "http://127.0.0.1:8080/v1"
  std::string model;             // empty where the interface has none
  std::filesystem::path keyFile; // empty: it asks for no key
};

// Why a request came to nothing, for the log: it holds neither key nor what was said.
struct ServerFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Asks such a server and reads JSON. Any thread; several requests may be under way. It follows no redirect,
// since what is sent is meant for this server alone.
class ServerClient {
 public:
  // Reads the key. Throws std::runtime_error, with a text for the person who starts the service, if the
  // address is not protected or others can read the key's file.
  explicit ServerClient(const ServerChoice& choice);

  [[nodiscard]] const std::string& address() const { return address_; }
  [[nodiscard]] const std::string& key() const { return key_; } // empty if there is none
  // "Authorization: Bearer …", or nothing without a key.
  [[nodiscard]] std::vector<std::string> authorization() const;

  struct Limit {
    std::chrono::milliseconds time;  // for all of it
    std::function<bool()> abandoned; // asked once a second; may be empty
  };
  // The request's address is a path here, which is appended to the server's. Blocks. Throws ServerFailure,
  // also if it was abandoned.
  boost::json::value ask(HTTPRequest request, const Limit& limit);
  boost::json::value post(const std::string& path, const boost::json::object& body,
                          std::vector<std::string> headers, const Limit& limit);

 private:
  std::unique_ptr<HTTPTransfer> idleTransfer();

  std::string address_; // without a slash at its end
  std::string key_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<HTTPTransfer>> idle_; // guarded by the mutex
};

// The text at a place of an answer, such as "/choices/0/text": on one line, without control characters.
// Throws ServerFailure if there is none.
std::string textAt(const boost::json::value& answer, std::string_view pointer);

} // namespace tolvera::service

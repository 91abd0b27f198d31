#pragma once

#include "TolveraService/Engine/ServerTranslator.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace tolvera::service {

// Translates by a LibreTranslate server. What it offers is asked at the start, and again from time to time: a
// server may start later than this service, and gets new languages.
class LibreTranslator : public ServerTranslator {
 public:
  // Waits some seconds for the server's first answer; without one it offers nothing yet.
  explicit LibreTranslator(const ServerChoice& choice);

  [[nodiscard]] std::vector<std::string> targets(std::string_view source) const override;
  [[nodiscard]] bool canTranslate(std::string_view source, std::string_view target) const override;
  [[nodiscard]] std::string silentServer() const override;

 protected:
  std::string ask(std::string_view source, std::string_view target, std::string_view line,
                  const ServerClient::Limit& limit) override;

 private:
  // By the program's codes: how the server calls the language, and the targets with the server's names.
  struct Offer {
    std::string name;
    std::map<std::string, std::string, std::less<>> targets;
  };
  using Offers = std::map<std::string, Offer, std::less<>>;

  static Offers offersIn(const boost::json::value& languages);
  // True if the server has told what it offers.
  bool learn(const ServerClient::Limit& limit);
  void learnAgain(const std::stop_token& stop);

  mutable std::mutex mutex_; // guards the following
  std::condition_variable_any ends_;
  Offers offers_;

  std::jthread learning_; // last: it ends before what it uses
};

} // namespace tolvera::service

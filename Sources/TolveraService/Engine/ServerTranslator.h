#pragma once

#include "TolveraService/Engine/Translator.h"
#include "TolveraService/Transfer/ServerClient.h"

#include <string>
#include <string_view>

namespace tolvera::service {

// What translation servers have in common, whichever interface they speak: time-outs, failures in words, and
// an answer that is taken as one line of text, of a length that a translation may have.
class ServerTranslator : public Translator {
 public:
  // Throws what ServerClient throws.
  explicit ServerTranslator(const ServerChoice& choice) : client_(choice) {}

  [[nodiscard]] std::string sendsTo() const override { return client_.address(); }
  // A server may load its model with the first request.
  void warmUp(std::string_view source, std::string_view target, const Abandoned& abandoned) override;
  Result translate(std::string_view source, std::string_view target, std::string_view line,
                   const Abandoned& abandoned) override;

 protected:
  // What the server makes of the line. Throws ServerFailure.
  virtual std::string ask(std::string_view source, std::string_view target, std::string_view line,
                          const ServerClient::Limit& limit) = 0;

  ServerClient client_;
};

} // namespace tolvera::service

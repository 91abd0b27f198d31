#pragma once

#include "TolveraService/Engine/UtteranceListener.h"
#include "TolveraService/Engine/WhisperEngine.h"
#include "TolveraService/Engine/WhisperModel.h"

#include <optional>

namespace tolvera::service {

// One run heard by Whisper in this process.
class WhisperListener : public UtteranceListener {
 public:
  explicit WhisperListener(WhisperEngine& engine) : engine_(engine) {}
  ~WhisperListener() override;

  void begin(Request request) override;
  void spoil() noexcept override { engine_.forgetModel(); }

 protected:
  std::optional<Decoded> decode(const Stretch& stretch) override;
  bool isDecoderFree() override { return engine_.turns().isOneFree(); }

 private:
  std::optional<Decoded> decodeInTurn(const Stretch& stretch);
  void identify(const Stretch& stretch);

  WhisperEngine& engine_;
  std::optional<WhisperDecoder> decoder_;
};

} // namespace tolvera::service

#pragma once

#include "TolveraService/Engine/SpeechEngine.h"
#include "TolveraService/Engine/UtteranceListener.h"
#include "TolveraService/Engine/WhisperModel.h"
#include "TolveraService/Transfer/ServerClient.h"

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tolvera::service {

// Speech heard by a server with an OpenAI-compatible interface (POST …/audio/transcriptions): vLLM, speaches,
// LocalAI, whisper.cpp's own server. The gate runs here, so that only speech goes there. Outlives its
// listeners.
class TranscriptionServer : public SpeechEngine {
 public:
  // `gate`: the file of the gate's model. Throws what ServerClient throws.
  TranscriptionServer(const ServerChoice& choice, std::filesystem::path gate, std::size_t runs);

  [[nodiscard]] std::string name() const override { return model_ + " at " + client_.address(); }
  // What Whisper's large models know: the interface does not tell.
  [[nodiscard]] std::vector<std::string> languages() const override { return languages_; }
  [[nodiscard]] std::string sendsTo() const override { return client_.address(); }
  [[nodiscard]] std::size_t runs() const override { return runs_; }
  [[nodiscard]] std::size_t reportsToSettle() const override { return UtteranceListener::decodesToSettle; }
  [[nodiscard]] std::unique_ptr<Listener> listener() override;

  // For listeners.
  struct Transcript {
    WhisperDecoder::Text text;
    std::string language; // by Whisper's code; empty if it was given
  };
  // `language`: by Whisper's code; empty to have it identified. Blocks, any thread. Throws ServerFailure.
  Transcript transcribe(std::span<const float> sound, const std::string& language,
                        const ServerClient::Limit& limit);
  [[nodiscard]] const std::filesystem::path& gate() const { return gate_; }
  void release() { --inUse_; }

 private:
  const std::string model_;
  const std::filesystem::path gate_;
  const std::size_t runs_;
  const std::vector<std::string> languages_;
  ServerClient client_;
  std::atomic<std::size_t> inUse_ = 0;
};

// One run heard by such a server.
class TranscriptionServerListener : public UtteranceListener {
 public:
  explicit TranscriptionServerListener(TranscriptionServer& server) : server_(server) {}
  ~TranscriptionServerListener() override;

  void begin(Request request) override;
  void spoil() noexcept override {} // nothing here can be broken

 protected:
  std::optional<Decoded> decode(const Stretch& stretch) override;

 private:
  // Absent if the server has failed, or the run was abandoned. Throws EngineFailure after some in a row.
  std::optional<TranscriptionServer::Transcript> transcript(const Stretch& stretch,
                                                            const std::string& language);
  // True when the language of the utterance is known.
  bool identify(const Stretch& stretch, const std::string& language);

  TranscriptionServer& server_;
  std::string lastGuess_;
  int failures_ = 0;          // of finished utterances, in a row
  bool finishedOnly_ = false; // since what still grows has failed; until the utterance ends
};

} // namespace tolvera::service

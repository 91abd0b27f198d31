#include "TolveraService/Engine/TranscriptionServer.h"

#include "TolveraService/Engine/WhisperLanguages.h"
#include "TolveraService/Engine/WhisperText.h"

#include "Async/Log.h"

#include <boost/json/value.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <thread>
#include <utility>

namespace tolvera::service {

namespace json = boost::json;

namespace {

// A server goes on with a request that is given up, and the next one waits behind it: better to wait.
constexpr std::chrono::seconds patience{20};
constexpr std::chrono::milliseconds beforeRetry{300};
constexpr int failuresThatEnd = 3;
// Each decode sends the whole utterance, and others may use the server too.
constexpr std::chrono::milliseconds spacing{800};
constexpr double share = 0.5;
constexpr std::size_t bytesPerSecond = 100; // of text, at most
constexpr std::size_t bytesBeside = 200;
constexpr std::size_t speechToChange = 2 * SpeechEngine::sampleRate;

// As a WAV file: mono, signed 16 bits.
std::string wavOf(std::span<const float> sound) {
  std::string file;
  const auto add = [&file](std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) file += static_cast<char>((value >> (8 * i)) & 0xFF);
  };
  const auto size = static_cast<std::uint32_t>(sound.size() * 2);
  constexpr auto rate = static_cast<std::uint32_t>(SpeechEngine::sampleRate);
  file.reserve(sound.size() * 2 + 44);
  file += "RIFF";
  add(36 + size, 4);
  file += "WAVEfmt ";
  add(16, 4); // bytes of the format
  add(1, 2);  // PCM
  add(1, 2);  // channels
  add(rate, 4);
  add(rate * 2, 4); // bytes a second
  add(2, 2);        // bytes a sample
  add(16, 2);       // bits
  file += "data";
  add(size, 4);
  for (const float sample : sound)
    add(static_cast<std::uint32_t>(std::lround(std::clamp(sample, -1.0F, 1.0F) * 32767)), 2);
  return file;
}

float numberAt(const json::value& answer, std::string_view pointer) {
  boost::system::error_code error;
  const json::value* value = answer.find_pointer(pointer, error);
  return value != nullptr && value->is_number() ? value->to_number<float>() : 0;
}

} // namespace

TranscriptionServer::TranscriptionServer(const ServerChoice& choice, std::filesystem::path gate,
                                         std::size_t runs)
    : model_(choice.model), gate_(std::move(gate)), runs_(runs), languages_(whisperLanguages()),
      client_(choice) {}

std::unique_ptr<Listener> TranscriptionServer::listener() {
  for (std::size_t others = inUse_; others < runs_;)
    if (inUse_.compare_exchange_weak(others, others + 1))
      return std::make_unique<TranscriptionServerListener>(*this);
  return nullptr;
}

TranscriptionServer::Transcript TranscriptionServer::transcribe(std::span<const float> sound,
                                                                const std::string& language,
                                                                const ServerClient::Limit& limit) {
  HTTPRequest request;
  request.address = "/audio/transcriptions";
  request.headers = client_.authorization();
  // Not all servers give more than the text: the rest is asked for when it is needed.
  request.form = {{"file", wavOf(sound), "speech.wav", "audio/wav"},
                  {"model", model_, {}, {}},
                  {"response_format", language.empty() ? "verbose_json" : "json", {}, {}},
                  {"temperature", "0", {}, {}}};
  if (!language.empty()) request.form.push_back({"language", language, {}, {}});
  const json::value answer = client_.ask(std::move(request), limit);
  Transcript transcript;
  transcript.text.words = textAt(answer, "/text");
  if (transcript.text.words.size() > bytesBeside + bytesPerSecond * (sound.size() / sampleRate + 1))
    throw ServerFailure("its text is too long");
  if (!language.empty()) return transcript;
  transcript.text.certainty = numberAt(answer, "/segments/0/avg_logprob");
  transcript.text.silence = numberAt(answer, "/segments/0/no_speech_prob");
  boost::system::error_code error;
  if (answer.find_pointer("/language", error) == nullptr)
    throw ServerFailure("it does not tell which language is spoken; choose it in the program");
  transcript.language = whisperLanguageNamed(textAt(answer, "/language"));
  return transcript;
}

TranscriptionServerListener::~TranscriptionServerListener() {
  traceSpeed();
  server_.release();
}

void TranscriptionServerListener::begin(Request request) {
  start(std::move(request), server_.gate(), server_.languages(), {spacing, share});
}

std::optional<UtteranceListener::Decoded> TranscriptionServerListener::decode(const Stretch& stretch) {
  if (finishedOnly_ && !stretch.final) return std::nullopt;
  const bool asks = !identified_ || (doubtful_ && stretch.final && isAutomatic());
  auto result = transcript(stretch, asks ? "" : language_);
  if (!result || (asks && !identify(stretch, result->language))) return std::nullopt;
  if (!isPlausible(result->text, stretch.spoken)) return std::nullopt;
  return Decoded{std::move(result->text.words), {}};
}

std::optional<TranscriptionServer::Transcript>
TranscriptionServerListener::transcript(const Stretch& stretch, const std::string& language) {
  finishedOnly_ = false;
  for (bool again = false;; again = true) {
    try {
      auto result = server_.transcribe(stretch.sound, language, {patience, request_.abandoned});
      failures_ = 0;
      return result;
    } catch (const ServerFailure& failure) {
      if (request_.abandoned()) return std::nullopt;
      if (!stretch.final) {
        log::warn(log::Category::service, server_.sendsTo(), ": ", failure.what());
        finishedOnly_ = true;
        return std::nullopt;
      }
      if (!again) {
        std::this_thread::sleep_for(beforeRetry);
        continue;
      }
      const std::string reason = server_.sendsTo() + ": " + failure.what();
      std::fprintf(stderr, "tolvera-service: an utterance was not heard: %s\n", reason.c_str());
      if (++failures_ == failuresThatEnd) throw EngineFailure(reason);
      return std::nullopt;
    }
  }
}

bool TranscriptionServerListener::identify(const Stretch& stretch, const std::string& language) {
  if (!isCandidate(language)) return identified_;
  if (identified_) { // and doubtful
    doubtful_ = false;
    if (stretch.spoken >= speechToChange) language_ = language;
    return true;
  }
  const bool agreed = language == std::exchange(lastGuess_, language);
  language_ = language;
  identified_ =
      stretch.final || stretch.spoken >= speechToIdentify || (stretch.spoken >= speechToBeSure && agreed);
  // A short utterance had to be shown in some language: look at the next one again.
  doubtful_ = stretch.spoken < speechToBeSure;
  return identified_;
}

} // namespace tolvera::service

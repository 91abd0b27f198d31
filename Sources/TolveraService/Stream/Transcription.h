#pragma once

#include "TolveraService/Accounts/AccountStore.h"
#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/Speech.h"
#include "TolveraService/Engine/SpeechEngine.h"
#include "TolveraService/Engine/Translator.h"
#include "TolveraService/Stream/AudioQueue.h"
#include "TolveraService/Stream/CaptionRoute.h"
#include "TolveraService/Stream/DubStream.h"
#include "TolveraService/Stream/StreamOutput.h"
#include "TolveraService/Stream/StreamProtocol.h"
#include "TolveraService/Stream/TranslatedCaptions.h"

#include "Async/Clock.h"

#include <atomic>
#include <memory>
#include <string>

namespace tolvera::service {

// The work of one run: sound from its queue becomes frames of captions and balance. A job on a worker thread
// calls `run`, and again after a pause of the queue; it shares the queue and the output with the connection
// and uses the store, the translator and the speech of the server, which outlive it.
class Transcription {
 public:
  struct Job {
    StreamParameters parameters;
    SecretHash installation{}; // whose time is used
    std::shared_ptr<const SpeechEngine> engine;
    std::shared_ptr<AudioQueue> audio;
    std::shared_ptr<StreamOutput> output;
    std::shared_ptr<DubStream> dub; // null if the translation is not spoken
  };

  Transcription(Job job, AccountStore& accounts, Translator& translator, const Speech& speech,
                const Clock& clock);

  // Listens until the queue is paused, the sound ends or the time on the account does, sends what it still
  // has, and gives the listener back. The socket is closed after the last alone. Never throws.
  void run(std::unique_ptr<Listener> listener);

 private:
  void begin();
  // True when the queue is paused, and more may come.
  bool listen();
  // False when the run has to end, because hearing takes longer than speaking.
  bool hear(const std::vector<std::int16_t>& samples);
  void heard(const Heard& heard);
  void identified(const std::string& language);
  // The words as they were spoken, if they are wanted.
  void sendSource(const Heard& heard);
  // Counts processed samples and charges them by the second; false when the time is used up.
  bool charge(std::size_t samples, bool last);
  void endWith(std::string_view code, const std::string& message);

  Job job_;
  std::unique_ptr<Listener> listener_;
  AccountStore& accounts_;
  const SpeechEngine& engine_;
  Translator& translator_;
  const Clock& clock_;
  std::string language_; // that is spoken; empty until it is known
  CaptionRoute route_ = CaptionRoute::none;
  SettledText::Split sentSource_;
  std::size_t uncharged_ = 0;
  std::size_t measured_ = 0; // samples
  Duration busy_{};          // that hearing them took
  std::atomic<bool> ended_ = false;
  TranslatedCaptions captions_; // last: its thread uses the others
};

} // namespace tolvera::service

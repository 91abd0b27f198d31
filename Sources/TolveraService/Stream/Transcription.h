#pragma once

#include "TolveraService/Accounts/AccountStore.h"
#include "TolveraService/Engine/RecognizerPool.h"
#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/Speech.h"
#include "TolveraService/Engine/Translator.h"
#include "TolveraService/Stream/AudioQueue.h"
#include "TolveraService/Stream/DubStream.h"
#include "TolveraService/Stream/StreamOutput.h"
#include "TolveraService/Stream/StreamProtocol.h"

#include <memory>
#include <string>

namespace tolvera::service {

// The work of one run: sound from its queue becomes frames of captions and balance. Made and owned by the
// job that runs it on a worker thread, which calls `run` once; it shares the queue and the output with the
// connection and uses the store, the translator and the speech of the server, which outlive it.
class Transcription {
 public:
  struct Job {
    StreamParameters parameters;
    SecretHash installation{}; // whose time is used
    std::shared_ptr<AudioQueue> audio;
    std::shared_ptr<StreamOutput> output;
    std::shared_ptr<DubStream> dub; // null if the translation is not spoken
  };

  Transcription(Job job, std::unique_ptr<RecognizerPool::Lease> recognizer, AccountStore& accounts,
                Translator& translator, const Speech& speech);

  // Listens until the sound ends or the time on the account does, and sends what it still has. The socket
  // stays open after the former and is closed after the latter. Never throws.
  void run();

 private:
  // One caption line that is still growing.
  struct Line {
    SettledText settled;
    SettledText::Split sent;
  };

  void listen();
  void heard(const Recognizer::Look& look);
  void partial(const std::string& words);
  void finished(const std::string& words);
  void grow(Line& line, CaptionKind kind, const std::string& whole);
  void end(CaptionKind kind, const std::string& whole);
  // Counts processed samples and charges them by the second; false when the time is used up.
  bool charge(std::size_t samples, bool last);

  Job job_;
  std::unique_ptr<RecognizerPool::Lease> recognizer_;
  AccountStore& accounts_;
  Translator& translator_;
  const Speech& speech_;
  bool captionsOnly_; // the target is the language that is heard
  std::string lastWords_;
  std::string lastTranslation_;
  Line source_;
  Line translation_;
  std::size_t uncharged_ = 0;
};

} // namespace tolvera::service

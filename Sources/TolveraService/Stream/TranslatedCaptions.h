#pragma once

#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/Speech.h"
#include "TolveraService/Engine/SpeechEngine.h"
#include "TolveraService/Engine/Translator.h"
#include "TolveraService/Stream/CaptionRoute.h"
#include "TolveraService/Stream/DubStream.h"
#include "TolveraService/Stream/StreamOutput.h"

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace tolvera::service {

// The captions of one run in the wanted language, on a thread of their own: a translator may take a second,
// and hearing goes on meanwhile. Of a line that still grows only the newest state is translated; finished
// lines all are, in order. One that cannot be translated appears as it was heard, in quotation marks.
class TranslatedCaptions {
 public:
  struct Run {
    std::string target;
    std::string voice;
    std::shared_ptr<StreamOutput> output;
    std::shared_ptr<DubStream> dub;                        // null if the translation is not spoken
    std::function<bool()> abandoned;                       // called on both threads
    std::function<void(const std::string& reason)> gaveUp; // after some failures in a row, on the own thread
  };

  TranslatedCaptions(Run run, const SpeechEngine& engine, Translator& translator, const Speech& speech);

  // What the engine has heard, on its way `route`. Quick. One thread, as the next.
  void take(Heard heard, CaptionRoute route);
  // Waits until all that was taken is written, or the run is abandoned.
  void finish();

 private:
  struct Item {
    Heard heard;
    CaptionRoute route;
  };

  void work(const std::stop_token& stop);
  void partial(const Item& item);
  void finished(const Item& item);
  void send(SettledText::Split split);
  Translator::Result translated(const Item& item, const std::string& line, const Translator::Abandoned& late);
  Translator::Result translatedAtLast(const Item& item, const std::string& line);
  [[nodiscard]] std::size_t finalsWaiting();

  const Run run_;
  const SpeechEngine& engine_;
  Translator& translator_;
  const Speech& speech_;

  // The line that grows. Own thread.
  SettledText settled_;
  SettledText::Split sent_;
  std::string lastLine_;
  std::string lastTranslation_;
  int failures_ = 0; // of finished lines, in a row

  std::mutex mutex_; // guards the following
  std::condition_variable_any changed_;
  std::deque<Item> waiting_; // finals, and at most one line that grows behind them
  bool busy_ = false;

  std::jthread thread_; // last: it ends before what it uses
};

} // namespace tolvera::service

#include "TolveraService/Engine/Recognizer.h"

#include <pocketsphinx.h>
#include <sphinxbase/cmn.h>
#include <sphinxbase/err.h>
#include <sphinxbase/feat.h>

#include <algorithm>
#include <mutex>
#include <stdexcept>

namespace tolvera::service {

namespace {

// A speaker without pauses: cut where the words stood still, or in any case before the end pass of an
// utterance takes too long.
constexpr std::size_t looksBeforeCut = 100;
constexpr std::size_t looksUnchangedForCut = 3;
constexpr std::size_t looksAtMost = 130;

struct FreeConfiguration {
  void operator()(cmd_ln_t* configuration) const { cmd_ln_free_r(configuration); }
};

} // namespace

std::filesystem::path Recognizer::installedModel() { return TOLVERA_SPEECH_MODEL; }

void Recognizer::Free::operator()(ps_decoder_s* decoder) const { ps_free(decoder); }

Recognizer::Recognizer(const std::filesystem::path& model) {
  const std::string acoustic = model / "en-us";
  const std::string language = model / "en-us.lm.bin";
  const std::string dictionary = model / "cmudict-en-us.dict";
  for (const std::string& file : {acoustic + "/mdef", language, dictionary})
    if (!std::filesystem::exists(file))
      throw std::runtime_error("The English speech model is not installed: " + file +
                               " is missing. On Debian it is in the package pocketsphinx-en-us.");
  static std::once_flag quiet;
  std::call_once(quiet, [] { err_set_logfp(nullptr); });
  // At most 5,000 states a frame keep two streams in real time; an utterance ends after 0.3 s of silence.
  std::unique_ptr<cmd_ln_t, FreeConfiguration> configuration(
      cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", acoustic.c_str(), "-lm", language.c_str(), "-dict",
                  dictionary.c_str(), "-maxhmmpf", "5000", "-vad_postspeech", "30", nullptr));
  if (configuration) decoder_.reset(ps_init(configuration.get()));
  if (!decoder_)
    throw std::runtime_error("The English speech model in " + model.string() + " cannot be used.");
  const cmn_t* mean = ps_get_feat(decoder_.get())->cmn_struct;
  startingMean_.assign(mean->cmn_mean, mean->cmn_mean + mean->veclen);
  ps_start_utt(decoder_.get());
}

Recognizer::~Recognizer() = default;

void Recognizer::begin() {
  ps_end_utt(decoder_.get());
  cmn_live_set(ps_get_feat(decoder_.get())->cmn_struct, startingMean_.data());
  ps_start_stream(decoder_.get());
  ps_start_utt(decoder_.get());
  speaking_ = false;
  looksInUtterance_ = 0;
}

std::string Recognizer::hypothesis() const {
  const char* words = ps_get_hyp(decoder_.get(), nullptr);
  return words != nullptr ? words : "";
}

Recognizer::Look Recognizer::hear(std::span<const std::int16_t> samples) {
  if (ps_process_raw(decoder_.get(), samples.data(), samples.size(), FALSE, FALSE) < 0)
    throw std::runtime_error("the speech decoder failed");
  const bool speech = ps_get_in_speech(decoder_.get()) != 0;
  if (speaking_ && !speech) return finish();
  if (!speech) return {};
  speaking_ = true;
  Look look{hypothesis(), false};
  if (tooLong(look.words)) return finish();
  return look;
}

Recognizer::Look Recognizer::finish() {
  ps_end_utt(decoder_.get());
  Look look{hypothesis(), true};
  if (ps_start_utt(decoder_.get()) < 0) throw std::runtime_error("the speech decoder failed");
  speaking_ = false;
  looksInUtterance_ = 0;
  looksUnchanged_ = 0;
  lastWords_.clear();
  return look;
}

bool Recognizer::tooLong(const std::string& words) {
  ++looksInUtterance_;
  looksUnchanged_ = words == lastWords_ ? looksUnchanged_ + 1 : 0;
  lastWords_ = words;
  if (looksInUtterance_ >= looksAtMost) return true;
  return looksInUtterance_ >= looksBeforeCut && looksUnchanged_ >= looksUnchangedForCut;
}

} // namespace tolvera::service

#include "TolveraService/Engine/WhisperModel.h"

#include "TolveraService/Engine/SpeechEngine.h"

#include <whisper.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace tolvera::service {

namespace {

// A whole window of 30 s costs five times as much as one that fits the sound, but with less than this much
// the model falls into loops.
constexpr int leastContext = 384;
constexpr int contextAround = 64;
constexpr std::size_t samplesPerContext = 320;
constexpr int tokensBeside = 8;
constexpr int tokensPerSecond = 6;

constexpr float another = 0.4F; // how far the second try's temperature is from the first's

// The part of the time since it was made that some threads of this process have had the processors.
class ProcessorShare {
 public:
  [[nodiscard]] double of(int threads) const {
    const double used = static_cast<double>(std::clock() - before_) / CLOCKS_PER_SEC;
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - began_;
    return used / (passed.count() * threads);
  }

 private:
  std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
  std::clock_t before_ = std::clock();
};

constexpr double wholeShare = 0.85; // below it other programs took a part

// Tasks of the machine that run or could run now, this thread among them; 1 if that cannot be read.
int runnableTasks() {
  std::ifstream file("/proc/loadavg");
  double average = 0;
  int runnable = 1;
  file >> average >> average >> average >> runnable;
  return runnable;
}

std::string trimmed(std::string text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// A token may hold a part of a character: the last of a text that was cut may be incomplete.
void dropIncompleteCharacter(std::string& text) {
  std::size_t start = text.size();
  while (start > 0 && (static_cast<unsigned char>(text[start - 1]) & 0xC0) == 0x80) --start;
  if (start == 0) return;
  const auto lead = static_cast<unsigned char>(text[start - 1]);
  const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (text.size() - start + 1 < length) text.resize(start - 1);
}

} // namespace

void quietenWhisper() {
  static std::once_flag once;
  std::call_once(once, [] { whisper_log_set([](ggml_log_level, const char*, void*) {}, nullptr); });
}

void WhisperFree::operator()(whisper_context* context) const { whisper_free(context); }
void WhisperFree::operator()(whisper_state* state) const { whisper_free_state(state); }
void WhisperFree::operator()(whisper_vad_context* gate) const { whisper_vad_free(gate); }

WhisperModel::WhisperModel(const std::filesystem::path& file) {
  quietenWhisper();
  whisper_context_params parameters = whisper_context_default_params();
  parameters.use_gpu = false;
  parameters.flash_attn = false; // slower on processors
  context_.reset(whisper_init_from_file_with_params_no_state(file.c_str(), parameters));
  if (!context_) throw std::runtime_error("the speech model " + file.string() + " cannot be loaded");
}

WhisperDecoder::WhisperDecoder(std::shared_ptr<const WhisperModel> model, int threadsAtMost,
                               std::function<bool()> abandoned)
    : model_(std::move(model)), state_(whisper_init_state(model_->get())), threadsAtMost_(threadsAtMost),
      abandoned_(std::move(abandoned)) {
  if (!state_) throw std::runtime_error("there is no memory for one more run");
}

WhisperDecoder::Text WhisperDecoder::decode(std::span<const float> samples, const std::string& language,
                                            Effort effort, bool translate) {
  chooseThreads();
  whisper_full_params parameters = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
  const int context = static_cast<int>(samples.size() / samplesPerContext) + contextAround;
  tokensAtMost_ =
      tokensBeside + tokensPerSecond * static_cast<int>(samples.size() / SpeechEngine::sampleRate + 1);
  parameters.n_threads = threads_;
  parameters.audio_ctx = std::min(std::max(leastContext, context), whisper_n_audio_ctx(model_->get()));
  parameters.max_tokens = tokensAtMost_;
  parameters.language = language.c_str();
  parameters.translate = translate;
  parameters.no_context = true;
  parameters.no_timestamps = true;
  parameters.single_segment = true;
  parameters.suppress_nst = true;
  parameters.print_progress = false;
  parameters.greedy.best_of = 1;
  parameters.temperature_inc = effort == Effort::thorough ? another : 0;
  parameters.abort_callback = [](void* self) { return static_cast<WhisperDecoder*>(self)->abandoned_(); };
  parameters.abort_callback_user_data = this;
  const auto count = static_cast<int>(samples.size());
  const ProcessorShare share;
  if (!works(whisper_full_with_state(model_->get(), state_.get(), parameters, samples.data(), count)))
    return {};
  // Fewer threads find room beside other programs, so they do not tell that those have gone.
  crowded_ = threads_ < threadsAtMost_ || share.of(threads_) < wholeShare;
  Text text;
  double sum = 0;
  int tokens = 0;
  for (int i = 0; i < whisper_full_n_segments_from_state(state_.get()); ++i) {
    text.words += whisper_full_get_segment_text_from_state(state_.get(), i);
    text.silence = whisper_full_get_segment_no_speech_prob_from_state(state_.get(), i);
    for (int j = 0; j < whisper_full_n_tokens_from_state(state_.get(), i); ++j, ++tokens)
      sum += whisper_full_get_token_data_from_state(state_.get(), i, j).plog;
  }
  dropIncompleteCharacter(text.words);
  text.words = trimmed(std::move(text.words));
  text.certainty = static_cast<float>(sum / std::max(tokens, 1));
  return text;
}

// The threads of a decode wait for each other thousands of times a second, and spin meanwhile. Where other
// programs take some of the processors, fewer threads finish sooner.
void WhisperDecoder::chooseThreads() {
  const int others = crowded_ ? runnableTasks() - 1 : 0;
  threads_ = std::clamp(threadsAtMost_ - others, 1, threadsAtMost_);
}

// False if the run was abandoned half way.
bool WhisperDecoder::works(int result) const {
  if (result == 0) return true;
  if (abandoned_()) return false;
  throw std::runtime_error("the speech model failed with " + std::to_string(result));
}

WhisperDecoder::Text WhisperDecoder::transcribe(std::span<const float> samples, const std::string& language,
                                                Effort effort) {
  return decode(samples, language, effort, false);
}

WhisperDecoder::Text WhisperDecoder::translate(std::span<const float> samples, const std::string& language,
                                               Effort effort) {
  return decode(samples, language, effort, true);
}

WhisperDecoder::Text WhisperDecoder::translateAgain(const std::string& language) {
  whisper_context* const context = model_->get();
  const whisper_token end = whisper_token_eot(context);
  std::vector<whisper_token> next = {whisper_token_sot(context),
                                     whisper_token_lang(context, whisper_lang_id(language.c_str())),
                                     whisper_token_translate(context), whisper_token_not(context)};
  Text text;
  double sum = 0;
  int past = 0;
  int made = 0;
  for (; made < tokensAtMost_ && !abandoned_(); ++made) {
    const auto count = static_cast<int>(next.size());
    if (!works(whisper_decode_with_state(context, state_.get(), next.data(), count, past, threads_))) break;
    past += count;
    // Of the text tokens and the end, which come before all other special ones.
    const float* logits = whisper_get_logits_from_state(state_.get()) +
                          static_cast<ptrdiff_t>(count - 1) * whisper_n_vocab(context); // the last token's
    const auto* best = std::max_element(logits, logits + end + (made > 0 ? 1 : 0));
    double total = 0;
    for (const float* logit = logits; logit <= logits + end; ++logit) total += std::exp(*logit - *best);
    sum -= std::log(total);
    const auto token = static_cast<whisper_token>(best - logits);
    if (token == end) break;
    text.words += whisper_token_to_str(context, token);
    next = {token};
  }
  dropIncompleteCharacter(text.words);
  text.words = trimmed(std::move(text.words));
  text.certainty = static_cast<float>(sum / std::max(made, 1));
  return text;
}

WhisperDecoder::Guess WhisperDecoder::identify(std::span<const std::string> languages) {
  whisper_context* const context = model_->get();
  const whisper_token start = whisper_token_sot(context);
  if (!works(whisper_decode_with_state(context, state_.get(), &start, 1, 0, threads_))) return {};
  const float* logits = whisper_get_logits_from_state(state_.get());
  Guess guess;
  float best = 0;
  double total = 0;
  const auto logitOf = [&](const std::string& language) {
    return logits[whisper_token_lang(context, whisper_lang_id(language.c_str()))];
  };
  for (const std::string& language : languages)
    if (const float logit = logitOf(language); guess.language.empty() || logit > best) {
      guess.language = language;
      best = logit;
    }
  for (const std::string& language : languages) total += std::exp(logitOf(language) - best);
  guess.probability = total > 0 ? static_cast<float>(1 / total) : 0;
  return guess;
}

SpeechGate::SpeechGate(const std::filesystem::path& file) {
  quietenWhisper();
  whisper_vad_context_params parameters = whisper_vad_default_context_params();
  parameters.n_threads = 1;
  parameters.use_gpu = false;
  gate_.reset(whisper_vad_init_from_file_with_params(file.c_str(), parameters));
  if (!gate_) throw std::runtime_error("the speech gate " + file.string() + " cannot be loaded");
  whisper_vad_reset_state(gate_.get()); // a new one starts with what was in its memory before
}

float SpeechGate::probability(std::span<const float, hop> samples) {
  const auto count = static_cast<int>(samples.size());
  if (!whisper_vad_detect_speech_no_reset(gate_.get(), samples.data(), count)) return 0;
  return whisper_vad_probs(gate_.get())[0];
}

} // namespace tolvera::service

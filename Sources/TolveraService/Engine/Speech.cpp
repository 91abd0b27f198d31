#include "TolveraService/Engine/Speech.h"

#include <espeak-ng/speak_lib.h>
#include <soxr.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

namespace tolvera::service {

namespace {

// How a voice differs from the synthesiser's plain one.
struct Profile {
  std::string_view code;
  std::string_view variant; // the shape of the throat
  int pitch;                // 0 to 100; 50 is the variant's own
  int range;                // of the melody, 0 (flat) to 100
  int wordsPerMinute;
  bool american = false; // where the language is English
};

constexpr std::array<Profile, 8> profiles = {{{"Tina", "f3", 62, 62, 176},
                                              {"Serena", "f1", 50, 38, 154},
                                              {"Jennifer", "f2", 50, 54, 172, true},
                                              {"Katerina", "f4", 30, 48, 160},
                                              {"Ethan", "m7", 58, 64, 182},
                                              {"Raymond", "m3", 54, 50, 164},
                                              {"Harvey", "m4", 14, 40, 148},
                                              {"Aiden", "m1", 38, 52, 178, true}}};

const Profile& profileOf(std::string_view code) {
  const auto found = std::find_if(profiles.begin(), profiles.end(),
                                  [&](const Profile& profile) { return profile.code == code; });
  return found == profiles.end() ? profiles.front() : *found;
}

// Quotation marks are for the eye: read aloud they are a pause in the middle of a phrase.
std::string withoutQuotationMarks(std::string_view text) {
  std::string plain(text);
  for (const std::string_view mark : {"“", "”", "\""})
    for (std::size_t at = plain.find(mark); at != std::string::npos; at = plain.find(mark, at))
      plain.erase(at, mark.size());
  return plain;
}

std::vector<std::int16_t> resampled(const std::vector<std::int16_t>& samples, double from) {
  const double ratio = static_cast<double>(Speech::sampleRate) / from;
  std::vector<std::int16_t> result(
      static_cast<std::size_t>(std::ceil(static_cast<double>(samples.size()) * ratio)));
  soxr_io_spec_t format = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
  format.flags |= SOXR_NO_DITHER;
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  std::size_t made = 0;
  const soxr_error_t error =
      soxr_oneshot(from, Speech::sampleRate, 1, samples.data(), samples.size(), nullptr, result.data(),
                   result.size(), &made, &format, &quality, nullptr);
  result.resize(error == nullptr ? made : 0);
  return result;
}

int collect(short* samples, int count, espeak_EVENT* events) {
  if (samples == nullptr || count <= 0) return 0;
  auto& sound = *static_cast<std::vector<std::int16_t>*>(events->user_data);
  sound.insert(sound.end(), samples, samples + count);
  return 0; // go on
}

// The one synthesiser of the process.
class Synthesizer {
 public:
  static Synthesizer& shared() {
    static Synthesizer synthesizer;
    return synthesizer;
  }

  [[nodiscard]] bool speaksAny() const { return !voices_.empty(); }
  [[nodiscard]] bool speaks(std::string_view language) const { return voices_.contains(language); }
  [[nodiscard]] double rate() const { return rate_; }

  // Samples at `rate`; empty on any failure.
  std::vector<std::int16_t> speak(std::string_view language, const Profile& profile,
                                  const std::string& text) {
    const auto voice = voices_.find(language);
    if (voice == voices_.end()) return {};
    std::vector<std::int16_t> sound;
    std::scoped_lock lock(mutex_);
    if (!choose(voice->second + "+" + std::string(profile.variant))) return {};
    espeak_SetParameter(espeakPITCH, profile.pitch, 0);
    espeak_SetParameter(espeakRANGE, profile.range, 0);
    espeak_SetParameter(espeakRATE, profile.wordsPerMinute, 0);
    // Without the pause the library keeps the last tenth of a second of the sound to itself.
    constexpr unsigned flags = espeakCHARS_UTF8 | espeakENDPAUSE;
    const espeak_ERROR error =
        espeak_Synth(text.c_str(), text.size() + 1, 0, POS_CHARACTER, 0, flags, nullptr, &sound);
    if (error != EE_OK) return {};
    return sound;
  }

 private:
  Synthesizer() {
    const int rate = espeak_Initialize(AUDIO_OUTPUT_SYNCHRONOUS, 0, nullptr, espeakINITIALIZE_DONT_EXIT);
    if (rate <= 0) return;
    rate_ = rate;
    espeak_SetSynthCallback(collect);
    listVoices();
  }

  // The best voice of every language code. A voice lists its languages one after another, each a byte of
  // priority (the lower the better) and a text; an empty one ends the list.
  void listVoices() {
    std::map<std::string, unsigned char, std::less<>> priorities;
    const espeak_VOICE** voice = espeak_ListVoices(nullptr);
    for (; voice != nullptr && *voice != nullptr; ++voice) {
      if ((*voice)->languages == nullptr || (*voice)->identifier == nullptr) continue;
      for (const char* entry = (*voice)->languages; *entry != 0; entry += std::strlen(entry + 1) + 2) {
        const auto priority = static_cast<unsigned char>(*entry);
        const auto [known, isNew] = priorities.emplace(entry + 1, priority);
        if (!isNew && known->second <= priority) continue;
        known->second = priority;
        voices_[entry + 1] = (*voice)->identifier;
      }
    }
  }

  // The library keeps the voice it has, or takes one without the variant, and does not always say so.
  static bool choose(const std::string& identifier) {
    if (espeak_SetVoiceByName(identifier.c_str()) != EE_OK) return false;
    const espeak_VOICE* current = espeak_GetCurrentVoice();
    return current != nullptr && current->identifier != nullptr && identifier == current->identifier;
  }

  std::mutex mutex_; // the library's global state
  double rate_ = 0;
  std::map<std::string, std::string, std::less<>> voices_; // identifiers by language; fixed once made
};

} // namespace

Speech::Speech() { Synthesizer::shared(); }

std::vector<std::string> Speech::voices() const {
  std::vector<std::string> codes;
  if (!Synthesizer::shared().speaksAny()) return codes;
  for (const Profile& profile : profiles) codes.emplace_back(profile.code);
  return codes;
}

bool Speech::canSpeak(std::string_view language) const { return Synthesizer::shared().speaks(language); }

std::vector<std::int16_t> Speech::say(std::string_view language, std::string_view voice,
                                      std::string_view text) const {
  Synthesizer& synthesizer = Synthesizer::shared();
  const Profile& profile = profileOf(voice);
  const bool american = profile.american && language == "en" && synthesizer.speaks("en-us");
  const auto sound = synthesizer.speak(american ? "en-us" : language, profile, withoutQuotationMarks(text));
  const bool silent =
      std::all_of(sound.begin(), sound.end(), [](std::int16_t sample) { return sample == 0; });
  if (silent) return {};
  return resampled(sound, synthesizer.rate());
}

} // namespace tolvera::service

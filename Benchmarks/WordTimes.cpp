#include "WordTimes.h"

#include "TolveraService/Engine/Recognizer.h"

#include <pocketsphinx.h>

#include <memory>
#include <stdexcept>

namespace tolvera::bench {

namespace {

ps_decoder_t* aligner() {
  static const std::unique_ptr<ps_decoder_t, int (*)(ps_decoder_t*)> decoder = [] {
    const auto model = service::Recognizer::installedModel();
    cmd_ln_t* configuration = cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", (model / "en-us").c_str(),
                                          "-dict", (model / "cmudict-en-us.dict").c_str(), "-remove_silence",
                                          "no", "-logfn", "/dev/null", nullptr);
    std::unique_ptr<ps_decoder_t, int (*)(ps_decoder_t*)> made(ps_init(configuration), ps_free);
    cmd_ln_free_r(configuration);
    return made;
  }();
  if (!decoder) throw std::runtime_error("no decoder for the alignment");
  return decoder.get();
}

} // namespace

std::vector<double> wordEnds(std::span<const std::int16_t> samples, const std::vector<std::string>& words) {
  constexpr double secondsPerFrame = 0.01;
  std::string grammar = "#JSGF V1.0; grammar sentence; public <sentence> =";
  for (const std::string& word : words) grammar += " " + word;
  grammar += ";";
  ps_decoder_t* decoder = aligner();
  if (ps_set_jsgf_string(decoder, "sentence", grammar.c_str()) != 0 ||
      ps_set_search(decoder, "sentence") != 0)
    throw std::runtime_error("a word that the dictionary does not know");
  ps_start_utt(decoder);
  ps_process_raw(decoder, samples.data(), samples.size(), FALSE, TRUE);
  ps_end_utt(decoder);
  std::vector<double> ends;
  for (ps_seg_t* segment = ps_seg_iter(decoder); segment != nullptr; segment = ps_seg_next(segment)) {
    std::string word = ps_seg_word(segment);
    if (word.front() == '<' || word.front() == '[' || word == "(NULL)") continue;
    word = word.substr(0, word.find('('));
    int first = 0;
    int last = 0;
    ps_seg_frames(segment, &first, &last);
    if (ends.size() >= words.size() || word != words[ends.size()])
      throw std::runtime_error("a false alignment");
    ends.push_back((last + 1) * secondsPerFrame);
  }
  if (ends.size() != words.size()) throw std::runtime_error("an alignment that is not whole");
  return ends;
}

} // namespace tolvera::bench

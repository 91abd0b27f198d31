#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// The words of a line that a translation mode marked as unknown, kept out of the way of the next mode: there
// a word of the first language could pass for one of its own ("come", "son") and be translated into something
// that was not said. Pure.
struct UnknownWords {
  std::vector<std::string> words;
  std::size_t known = 0; // words that the modes did translate

  // Takes a mode's output, puts a place-holder for every word marked as unknown and drops the other marks.
  // A place-holder that comes out of a later mode stands for the word that it stood for before.
  std::string hide(std::string_view marked);
  // Puts the words back, each run of them in one pair of quotation marks.
  [[nodiscard]] std::string show(std::string_view hidden) const;
};

} // namespace tolvera::service

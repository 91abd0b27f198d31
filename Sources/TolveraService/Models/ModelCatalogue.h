#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// A model that can be installed.
struct Model {
  std::string name;
  std::string file; // its name in a model directory
  std::string about;
  std::uint64_t size = 0; // bytes
  std::string sha256;     // 64 hexadecimal digits, lower case
  std::string memory;
  std::string licence; // the whole text
  std::string address; // where it is published; empty if it comes from a file only
};

// Reads a catalogue. Throws std::runtime_error for a text that is not one: a file name that would leave its
// directory and a hash of another form are refused too.
std::vector<Model> parseModelCatalogue(std::string_view json);

// The catalogue among the system's data, else the one that was compiled in. Throws as above and names the
// file.
std::vector<Model> loadModelCatalogue();

} // namespace tolvera::service

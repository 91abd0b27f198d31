#pragma once

#include "TolveraService/Models/ModelCatalogue.h"

#include <cstdint>
#include <filesystem>
#include <functional>

namespace tolvera::service {

// How far a download is.
struct Progress {
  std::uint64_t done = 0; // bytes that are there
  std::uint64_t size = 0; // bytes of the model
  double rate = 0;        // bytes a second
};

// True once the user wants it to end. Any thread.
using Interrupted = std::function<bool()>;

// Fetches the model from where it is published, over https (from this machine itself also over http), and
// makes it one of the user's models. It goes on where an earlier try has ended if the publisher still has the
// same version. Blocks; reports several times a second. False if it was interrupted: what has come is kept.
// Throws std::runtime_error or std::system_error with a sentence for the user.
bool downloadModel(const Model& model, const std::function<void(const Progress&)>& report,
                   const Interrupted& interrupted);

// Makes a file that is here already one of the user's models; throws as above.
void importModel(const Model& model, const std::filesystem::path& file);

} // namespace tolvera::service

#include "TolveraService/Models/ModelDownload.h"

#include "TolveraService/Models/PartialFile.h"
#include "TolveraService/Transfer/HTTPTransfer.h"

#include <fstream>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

namespace {

constexpr int mostRedirects = 5;

// What is to come from one address into the file.
class Fetching {
 public:
  Fetching(PartialFile& file, const Model& model) : file_(file), model_(model) {}

  // Gives the next address if it is redirected, nothing when all has come, or the user has interrupted it.
  std::string run(const std::string& address, const std::function<void(const Progress&)>& report,
                  const Interrupted& interrupted) {
    if (!isProtected(address))
      throw std::runtime_error("models are fetched over https alone, not from " + address);
    HTTPRequest request;
    request.address = address;
    request.abandoned = interrupted;
    request.onHeader = [this](std::string_view name, std::string_view value) {
      if (name == "etag" && value.starts_with('"')) tag_ = value; // a weak tag does not promise equal bytes
    };
    request.onBody = [this](long status, std::span<const char> bytes) { return take(status, bytes); };
    request.onProgress = [&](double rate) { report({file_.size(), model_.size, rate}); };
    if (file_.size() > 0 && !file_.versionTag().empty())
      request.headers = {"Range: bytes=" + std::to_string(file_.size()) + "-",
                         "If-Range: " + file_.versionTag()};
    const HTTPOutcome outcome = HTTPTransfer().perform(request);
    if (interrupted()) return {};
    if (!outcome.failure.empty()) throw std::runtime_error("the download stopped: " + outcome.failure);
    if (outcome.status >= 300 && outcome.status < 400) {
      if (outcome.redirect.empty()) throw std::runtime_error(address + " leads nowhere");
      return outcome.redirect;
    }
    if (outcome.status == 416) { // what is here is longer than what is there
      file_.restart({});
      throw std::runtime_error(address + " has another version now; try again");
    }
    if (outcome.status != 200 && outcome.status != 206)
      throw std::runtime_error(address + " answered with status " + std::to_string(outcome.status));
    return {};
  }

 private:
  bool take(long status, std::span<const char> bytes) {
    if (status != 200 && status != 206) return true; // the text of an error
    if (!begun_ && status == 200) file_.restart(tag_);
    begun_ = true;
    if (file_.add(bytes)) return true;
    file_.restart({});
    throw std::runtime_error("what comes is longer than the model; it was deleted");
  }

  PartialFile& file_;
  const Model& model_;
  std::string tag_;
  bool begun_ = false;
};

} // namespace

bool downloadModel(const Model& model, const std::function<void(const Progress&)>& report,
                   const Interrupted& interrupted) {
  if (model.address.empty())
    throw std::runtime_error(model.name + " is not published by itself: install it with --from FILE");
  PartialFile file(model);
  std::string address = model.address;
  for (int redirects = 0; file.size() < model.size && !address.empty(); ++redirects) {
    if (redirects > mostRedirects) throw std::runtime_error(model.address + " leads round in circles");
    address = Fetching(file, model).run(address, report, interrupted);
    if (interrupted()) return false;
  }
  if (file.size() < model.size)
    throw std::runtime_error("the download ended early; the next try goes on where it ended");
  file.commit();
  return true;
}

void importModel(const Model& model, const std::filesystem::path& path) {
  std::ifstream source(path, std::ios::binary);
  if (!source) throw std::runtime_error(path.string() + " cannot be read");
  PartialFile file(model);
  file.restart({});
  std::vector<char> block(1 << 18);
  while (source.read(block.data(), static_cast<std::streamsize>(block.size())) || source.gcount() > 0) {
    if (!file.add({block.data(), static_cast<std::size_t>(source.gcount())})) {
      file.restart({}); // too long: `commit` says so
      break;
    }
  }
  file.commit();
}

} // namespace tolvera::service

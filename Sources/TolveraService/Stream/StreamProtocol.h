#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// The parameters of a run, from the query of its address. This file holds pure functions.
struct StreamParameters {
  std::string token;
  std::string target;
  std::string source;
  bool dub = false;
  bool showSource = false;
  std::string voice; // empty: none asked for
};

// Reads a request target such as "/livetranslate/ws?token=…". A missing item is empty; the first of two
// items with one name counts. Nothing for a text that is not an address.
std::optional<StreamParameters> parseStreamParameters(std::string_view target);

// True for the frame that ends a run.
bool isStopFrame(std::string_view text);

enum class CaptionKind { source, translation };

std::string readyFrame(double secondsLeft);
std::string balanceFrame(double secondsLeft);
std::string captionFrame(CaptionKind kind, std::string_view text, std::string_view stash, bool final);
std::string errorFrame(std::string_view code, std::string_view message);

// Codes after which the client ends its run and shows the message. After others it connects again.
namespace errorCode {
inline constexpr std::string_view quotaExhausted = "quota_exhausted";
inline constexpr std::string_view replaced = "replaced";
inline constexpr std::string_view upstreamRejected = "upstream_rejected";
} // namespace errorCode

// Texts for the user, in both languages because a run does not tell which one the user reads.
namespace refusal {
std::string cannotHear(std::string_view source, const std::vector<std::string>& languages);
// `targets`: what the spoken language can be read in, itself excepted. `silentServer`: the translation server
// that has not told what it can do; empty if there is none.
std::string cannotTranslate(std::string_view source, std::string_view target,
                            const std::vector<std::string>& targets, const std::string& silentServer);
// `reason`: which translator does not work, and why.
std::string translationFailed(const std::string& reason);
std::string unknownToken();
// Neither an engine nor a model is installed.
std::string noEngine();
std::string busy(std::size_t streams);
// `server`: the one that hears; empty if this machine does.
std::string tooSlow(const std::string& server);
std::string engineFailed();
// `reason`: what does not hear any more, and why.
std::string hearingFailed(const std::string& reason);
std::string outOfTime();
std::string replaced();
std::string storeFailed();
} // namespace refusal

} // namespace tolvera::service

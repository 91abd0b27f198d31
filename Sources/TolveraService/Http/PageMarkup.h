#pragma once

#include "TolveraService/Http/HTTPMessage.h"
#include "TolveraService/Http/TextLanguage.h"

#include <string>
#include <string_view>

namespace tolvera::service {

// HTML of the service's pages. All pure.

// Text as HTML shows it, in content and in quoted attributes.
std::string escapedHTML(std::string_view text);

struct PageContent {
  TextLanguage language = TextLanguage::english;
  std::string title;
  std::string body;          // markup
  std::string otherLanguage; // address of the same page in the other language; empty for none
};

// A whole page, with headers that keep other sites from embedding it.
Response page(unsigned status, const PageContent& content);

// The style sheet of all pages.
Response styleSheet();

// The servers that get something of a run; empty: it stays on this machine.
struct Destinations {
  std::string sound;
  std::string text;
};

// The body of the page about privacy.
std::string privacyBody(TextLanguage language, const Destinations& destinations);

} // namespace tolvera::service

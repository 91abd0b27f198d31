#include "Fuzz/Fuzz.h"

#include "Platform/Linux/Sound/Graph/PipeWireMetadata.h"
#include "Platform/Linux/Sound/Graph/PipeWireProperties.h"

#include <algorithm>
#include <ranges>
#include <string>
#include <vector>

// What other programs tell the sound server of themselves. Lines of the input are keys and values in turn; a
// value may be absent.
void tolvera::test::fuzz(std::string_view input) {
  std::vector<std::string> lines;
  for (const auto line : std::views::split(input, '\n')) lines.emplace_back(line.begin(), line.end());
  std::vector<spa_dict_item> items;
  for (std::size_t i = 0; i < lines.size(); i += 2)
    items.push_back({lines[i].c_str(), i + 1 < lines.size() ? lines[i + 1].c_str() : nullptr});
  for (const std::uint32_t flags : {0U, std::uint32_t{SPA_DICT_FLAG_SORTED}}) {
    if (flags != 0) std::ranges::sort(items, {}, [](const auto& item) { return std::string_view(item.key); });
    const spa_dict properties{flags, static_cast<std::uint32_t>(items.size()), items.data()};
    require(adapters::pidIn(&properties) >= 0, "a process has a number");
    const auto id = adapters::idIn(&properties, PW_KEY_CLIENT_ID);
    require(id == PW_ID_ANY || id == adapters::numberIn(&properties, PW_KEY_CLIENT_ID), "no number is cut");
    require(adapters::sandboxedApplication(&properties).empty() || adapters::isPulse(&properties),
            "only a connection through the other server is named by it");
    require(adapters::allIn(&properties).size() <= items.size(), "nothing is made up");
  }
  (void)adapters::PipeWireMetadata::nameIn(std::string(input).c_str());
}

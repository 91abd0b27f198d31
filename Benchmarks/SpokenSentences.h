#pragma once

#include <array>
#include <string_view>

namespace tolvera::bench {

// What the synthesiser says for the service's benchmark: everyday sentences of different lengths and forms,
// as the recogniser writes them.
inline constexpr std::array<std::string_view, 20> spokenSentences = {
    "the meeting will start at nine o'clock on monday morning",
    "please send me the report before the end of the week",
    "our company has opened a new office in the city",
    "the weather was cold and it rained for three days",
    "she has been working in this hospital for twenty years",
    "i would like to know how much the ticket costs",
    "the government will publish the results of the election tomorrow",
    "many people in this country do not have clean water",
    "the children are playing in the garden behind the house",
    "he told me that the train was late again",
    "we need more time to finish this project",
    "the doctor said that i should drink more water",
    "the new bridge will be open to traffic in september",
    "scientists have found a way to store energy for longer",
    "my brother bought an old car and repaired it himself",
    "the museum is closed on tuesday but the library is open",
    "thank you very much for coming to our conference",
    "prices have gone up because there was less rain this year",
    "could you tell me where the nearest station is",
    "they decided to sell the farm and move to the coast"};

} // namespace tolvera::bench

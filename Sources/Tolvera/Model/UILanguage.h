#pragma once

#include <QString>

#include <array>

namespace tolvera {

// The language of the interface as the user chose it.
enum class UILanguage { system, chinese, english };

inline constexpr std::array allUILanguages = {UILanguage::system, UILanguage::chinese, UILanguage::english};

// The text that stands for the choice in the preferences and in the views: "system", "chinese", "english".
[[nodiscard]] QString storedText(UILanguage language);
// Any other text means `system`.
[[nodiscard]] UILanguage uiLanguageFromText(const QString& text);

} // namespace tolvera

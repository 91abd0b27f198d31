#include "TolveraCore/Languages.h"

#include <algorithm>

namespace tolvera {

namespace {

// Lower-cases ASCII only. All codes are ASCII, so other characters match no code anyway.
std::string lowerCasedTag(std::string_view identifier) {
  std::string tag(identifier);
  for (char& c : tag) {
    if (c == '_')
      c = '-';
    else if (c >= 'A' && c <= 'Z')
      c = static_cast<char>(c - 'A' + 'a');
  }
  return tag;
}

} // namespace

std::string Language::displayName(const platform::Locale& locale, std::string_view localeIdentifier) const {
  if (const auto name = locale.localizedString(code, localeIdentifier))
    return locale.capitalized(*name, localeIdentifier);
  return std::string(englishName);
}

namespace Languages {

const std::array<Language, 60> all = {{
    {"en", "English", true},      {"zh", "Chinese (Mandarin)", true},
    {"es", "Spanish", true},      {"ja", "Japanese", true},
    {"ko", "Korean", true},       {"fr", "French", true},
    {"de", "German", true},       {"pt", "Portuguese", true},
    {"ru", "Russian", true},      {"ar", "Arabic", true},
    {"hi", "Hindi", true},        {"id", "Indonesian", true},
    {"it", "Italian", true},      {"th", "Thai", true},
    {"vi", "Vietnamese", true},   {"tr", "Turkish", true},
    {"ms", "Malay", true},        {"nl", "Dutch", true},
    {"ur", "Urdu", true},         {"nb", "Norwegian", true},
    {"sv", "Swedish", true},      {"da", "Danish", true},
    {"he", "Hebrew", true},       {"fi", "Finnish", true},
    {"pl", "Polish", true},       {"is", "Icelandic", true},
    {"cs", "Czech", true},        {"fil", "Filipino", true},
    {"fa", "Persian", true},      {"yue", "Cantonese", false},
    {"el", "Greek", false},       {"af", "Afrikaans", false},
    {"ast", "Asturian", false},   {"be", "Belarusian", false},
    {"bg", "Bulgarian", false},   {"bn", "Bengali", false},
    {"bs", "Bosnian", false},     {"ca", "Catalan", false},
    {"ceb", "Cebuano", false},    {"et", "Estonian", false},
    {"gl", "Galician", false},    {"gu", "Gujarati", false},
    {"hr", "Croatian", false},    {"hu", "Hungarian", false},
    {"jv", "Javanese", false},    {"kk", "Kazakh", false},
    {"kn", "Kannada", false},     {"ky", "Kyrgyz", false},
    {"lv", "Latvian", false},     {"mk", "Macedonian", false},
    {"ml", "Malayalam", false},   {"mr", "Marathi", false},
    {"pa", "Punjabi", false},     {"ro", "Romanian", false},
    {"sk", "Slovak", false},      {"sl", "Slovenian", false},
    {"sw", "Swahili", false},     {"tg", "Tajik", false},
    {"az", "Azerbaijani", false}, {"uk", "Ukrainian", false},
}};

const std::array<Voice, 8> voices = {{
    {"Tina", "甜甜（女）", "Tina (female)"},
    {"Serena", "苏瑶（女·温柔）", "Serena (female, warm)"},
    {"Jennifer", "詹妮弗（女·美音）", "Jennifer (female, US)"},
    {"Katerina", "卡捷琳娜（女·御姐）", "Katerina (female, deep)"},
    {"Ethan", "晨煦（男·阳光）", "Ethan (male, bright)"},
    {"Raymond", "林川野（男·清亮）", "Raymond (male, clear)"},
    {"Harvey", "厚（男·低沉）", "Harvey (male, low)"},
    {"Aiden", "艾登（男·美音）", "Aiden (male, US)"},
}};

std::optional<Language> find(std::string_view code) {
  const auto* row = std::ranges::find(all, code, &Language::code);
  return row == all.end() ? std::nullopt : std::optional(*row);
}

bool canDub(std::string_view code) {
  const auto language = find(code);
  return language && language->canDub;
}

std::vector<Language> sorted(const platform::Locale& locale, std::string_view localeIdentifier) {
  struct Named {
    const Language* row;
    std::string name;
  };
  std::vector<Named> named;
  named.reserve(all.size());
  for (const Language& language : all)
    named.push_back({&language, language.displayName(locale, localeIdentifier)});
  std::ranges::sort(named, [&locale](const Named& left, const Named& right) {
    const int order = locale.localizedCompare(left.name, right.name);
    return order < 0 || (order == 0 && left.row < right.row);
  });

  std::vector<Language> languages;
  languages.reserve(named.size());
  for (const Named& each : named) languages.push_back(*each.row);
  return languages;
}

std::string guessTarget(std::string_view localeIdentifier) {
  std::string id = lowerCasedTag(localeIdentifier);
  if (find(id)) return id;
  if (id.starts_with("zh-hk") || id.starts_with("zh-mo")) return "yue";

  const auto begin = std::min(id.find_first_not_of('-'), id.size());
  const std::string base = id.substr(begin, id.find('-', begin) - begin);
  if (base == "no" || base == "nn") return "nb";
  if (base == "tl") return "fil";
  return find(base) ? base : "en";
}

} // namespace Languages

} // namespace tolvera

std::size_t std::hash<tolvera::Language>::operator()(const tolvera::Language& language) const noexcept {
  const std::hash<std::string_view> text;
  std::size_t sum = text(language.code);
  sum = sum * 31 + text(language.englishName);
  return sum * 31 + static_cast<std::size_t>(language.canDub);
}

#include "TolveraService/Engine/BilingualLanguageNames.h"

#include <algorithm>
#include <array>

namespace tolvera::service {

namespace {

struct Row {
  std::string_view code;
  std::string_view chinese;
  std::string_view english;
};

constexpr std::array<Row, 60> rows = {{
    {"en", "英语", "English"},
    {"zh", "中文", "Chinese"},
    {"es", "西班牙语", "Spanish"},
    {"ja", "日语", "Japanese"},
    {"ko", "韩语", "Korean"},
    {"fr", "法语", "French"},
    {"de", "德语", "German"},
    {"pt", "葡萄牙语", "Portuguese"},
    {"ru", "俄语", "Russian"},
    {"ar", "阿拉伯语", "Arabic"},
    {"hi", "印地语", "Hindi"},
    {"id", "印尼语", "Indonesian"},
    {"it", "意大利语", "Italian"},
    {"th", "泰语", "Thai"},
    {"vi", "越南语", "Vietnamese"},
    {"tr", "土耳其语", "Turkish"},
    {"ms", "马来语", "Malay"},
    {"nl", "荷兰语", "Dutch"},
    {"ur", "乌尔都语", "Urdu"},
    {"nb", "挪威语", "Norwegian"},
    {"sv", "瑞典语", "Swedish"},
    {"da", "丹麦语", "Danish"},
    {"he", "希伯来语", "Hebrew"},
    {"fi", "芬兰语", "Finnish"},
    {"pl", "波兰语", "Polish"},
    {"is", "冰岛语", "Icelandic"},
    {"cs", "捷克语", "Czech"},
    {"fil", "菲律宾语", "Filipino"},
    {"fa", "波斯语", "Persian"},
    {"yue", "粤语", "Cantonese"},
    {"el", "希腊语", "Greek"},
    {"af", "南非荷兰语", "Afrikaans"},
    {"ast", "阿斯图里亚斯语", "Asturian"},
    {"be", "白俄罗斯语", "Belarusian"},
    {"bg", "保加利亚语", "Bulgarian"},
    {"bn", "孟加拉语", "Bengali"},
    {"bs", "波斯尼亚语", "Bosnian"},
    {"ca", "加泰罗尼亚语", "Catalan"},
    {"ceb", "宿务语", "Cebuano"},
    {"et", "爱沙尼亚语", "Estonian"},
    {"gl", "加利西亚语", "Galician"},
    {"gu", "古吉拉特语", "Gujarati"},
    {"hr", "克罗地亚语", "Croatian"},
    {"hu", "匈牙利语", "Hungarian"},
    {"jv", "爪哇语", "Javanese"},
    {"kk", "哈萨克语", "Kazakh"},
    {"kn", "卡纳达语", "Kannada"},
    {"ky", "吉尔吉斯语", "Kyrgyz"},
    {"lv", "拉脱维亚语", "Latvian"},
    {"mk", "马其顿语", "Macedonian"},
    {"ml", "马拉雅拉姆语", "Malayalam"},
    {"mr", "马拉地语", "Marathi"},
    {"pa", "旁遮普语", "Punjabi"},
    {"ro", "罗马尼亚语", "Romanian"},
    {"sk", "斯洛伐克语", "Slovak"},
    {"sl", "斯洛文尼亚语", "Slovenian"},
    {"sw", "斯瓦希里语", "Swahili"},
    {"tg", "塔吉克语", "Tajik"},
    {"az", "阿塞拜疆语", "Azerbaijani"},
    {"uk", "乌克兰语", "Ukrainian"},
}};

constexpr std::size_t longestCode = 12;

bool isCodeByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
}

} // namespace

std::vector<std::string> programLanguages() {
  std::vector<std::string> codes;
  codes.reserve(std::size(rows));
  for (const Row& row : rows) codes.emplace_back(row.code);
  return codes;
}

LanguageName languageName(std::string_view code) {
  const auto* row = std::find_if(rows.begin(), rows.end(), [&](const Row& r) { return r.code == code; });
  if (row != rows.end()) return {std::string(row->chinese), std::string(row->english)};
  const bool plain =
      !code.empty() && code.size() <= longestCode && std::all_of(code.begin(), code.end(), isCodeByte);
  if (!plain) return {"这种语言", "this language"};
  return {"“" + std::string(code) + "”", "“" + std::string(code) + "”"};
}

} // namespace tolvera::service

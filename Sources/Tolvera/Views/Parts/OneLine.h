#pragma once

#include <QString>

#include <algorithm>

namespace tolvera {

// A text as it stands on one line: what would end the line is a blank.
inline QString oneLine(QString text) {
  const auto endsLine = [](QChar letter) {
    switch (letter.unicode()) {
    case u'\n':
    case u'\v':
    case u'\f':
    case u'\r':
    case 0x85: // next line
    case QChar::LineSeparator:
    case QChar::ParagraphSeparator:
      return true;
    default:
      return false;
    }
  };
  if (std::any_of(text.cbegin(), text.cend(), endsLine))
    std::replace_if(text.begin(), text.end(), endsLine, u' ');
  return text;
}

} // namespace tolvera

#include "Tolvera/Model/TokenStore.h"

#include "TolveraCore/API.h"

#include <QByteArrayView>
#include <QString>
#include <QStringDecoder>

#include <algorithm>
#include <filesystem>

namespace tolvera {

namespace {

std::filesystem::path directory(const platform::FileManager& files) {
  return files.applicationSupportDirectory() / "Tolvera";
}

std::filesystem::path file(const platform::FileManager& files, std::string_view server) {
  std::string name(server);
  std::ranges::replace(name, '/', '_');
  std::ranges::replace(name, ':', '_');
  return directory(files) / ("token-" + name);
}

} // namespace

std::optional<std::string> TokenStore::load(const platform::FileManager& files, std::string_view server) {
  const auto content = files.contents(file(files, server));
  if (!content || content->size() > API::longestToken) return std::nullopt;
  QStringDecoder utf8(QStringDecoder::Utf8);
  const QString text = utf8(QByteArrayView(content->data(), static_cast<qsizetype>(content->size())));
  if (utf8.hasError()) return std::nullopt;
  const QString token = text.trimmed();
  // No header would carry it, so it is as good as none.
  const auto isControl = [](QChar c) { return c.category() == QChar::Other_Control; };
  if (std::ranges::any_of(token, isControl)) return std::nullopt;
  return token.toStdString();
}

void TokenStore::save(platform::FileManager& files, std::string_view token, std::string_view server) {
  files.createPrivateDirectory(directory(files));
  files.writePrivateFile(file(files, server), token);
}

void TokenStore::clear(platform::FileManager& files, std::string_view server) {
  files.remove(file(files, server));
}

} // namespace tolvera

#include "TolveraService/Models/ModelCatalogue.h"

#include "TolveraService/Models/ModelStore.h"

#include <boost/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tolvera::service {

// Made from packaging/models.json by the build.
extern const std::string_view compiledModelCatalogue;

namespace {

std::string text(const boost::json::value& value) {
  const auto& string = value.as_string();
  return {string.data(), string.size()};
}

bool isPlainName(std::string_view name) {
  return !name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos;
}

bool isHash(std::string_view hash) {
  constexpr std::string_view digits = "0123456789abcdef";
  return hash.size() == 64 && hash.find_first_not_of(digits) == std::string_view::npos;
}

} // namespace

std::vector<Model> parseModelCatalogue(std::string_view json) {
  std::vector<Model> models;
  try {
    const boost::json::value whole = boost::json::parse(json);
    const boost::json::object& licences = whole.at("licences").as_object();
    for (const boost::json::value& row : whole.at("models").as_array()) {
      Model model{.name = text(row.at("name")),
                  .file = text(row.at("file")),
                  .about = text(row.at("about")),
                  .size = row.at("size").to_number<std::uint64_t>(),
                  .sha256 = text(row.at("sha256")),
                  .memory = text(row.at("memory")),
                  .licence = text(licences.at(text(row.at("licence")))),
                  .address = text(row.at("address"))};
      if (!isPlainName(model.name) || !isPlainName(model.file) || !isHash(model.sha256))
        throw std::runtime_error("the entry " + model.name + " is not usable");
      models.push_back(std::move(model));
    }
  } catch (const std::exception& error) {
    throw std::runtime_error(std::string("this is not a catalogue of models: ") + error.what());
  }
  return models;
}

std::vector<Model> loadModelCatalogue() {
  for (const std::filesystem::path& directory : dataDirectories()) {
    const auto path = directory / "tolvera/models.json";
    std::ifstream file(path, std::ios::binary);
    if (!file) continue;
    const std::string json{std::istreambuf_iterator<char>(file), {}};
    try {
      return parseModelCatalogue(json);
    } catch (const std::runtime_error& error) {
      throw std::runtime_error(path.string() + ": " + error.what());
    }
  }
  return parseModelCatalogue(compiledModelCatalogue);
}

} // namespace tolvera::service

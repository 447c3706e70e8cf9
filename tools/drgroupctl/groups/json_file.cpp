#include "groups/json_file.h"

#include <json/reader.h>

#include <exception>
#include <memory>

#include "output/text.h"

namespace drgroupctl {

bool ParseJsonObject(const std::string& text, Json::Value& object, std::string& problem) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  std::string errors;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &object, &errors)) {
      // Several lines that begin with "* Line L, Column C".
      const std::size_t at = errors.find("Line ");
      const std::size_t end = errors.find("\n* ");
      std::string said = errors.substr(at == std::string::npos ? 0 : at, end - at);
      for (char& c : said) c = c == '\n' ? ' ' : c;
      problem = "it is not JSON: " + Printable(said);
    } else if (!object.isObject()) {
      problem = "it is not a JSON object";
    }
  } catch (const std::exception&) {
    problem = "it is nested deeper than can be read";
  }
  return problem.empty();
}

}  // namespace drgroupctl

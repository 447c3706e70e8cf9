#include <json/writer.h>

#include <sstream>
#include <string_view>
#include <utility>

#include "output/formatter.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// A catalogue keeps any bytes as text; a JSON document is UTF-8 throughout.
void RepairTexts(Json::Value& value) {
  const char* begin = nullptr;
  const char* end = nullptr;
  if (value.isString() && value.getString(&begin, &end)) {
    const std::string_view text(begin, static_cast<std::size_t>(end - begin));
    if (!IsUtf8(text)) value = RepairUtf8(text);
  } else if (value.isArray() || value.isObject()) {
    for (Json::Value& each : value) RepairTexts(each);
  }
}

// The document with the member "warnings" when there are any.
std::string WithWarnings(Json::Value document, const std::vector<std::string>& warnings) {
  for (const std::string& each : warnings) document["warnings"].append(each);
  return FormatDocument(std::move(document));
}

class JsonFormatter : public Formatter {
 public:
  std::string Format(const Report& report,
                     const std::vector<std::string>& warnings) const override {
    Json::Value document(Json::objectValue);
    for (const Report::Part& part : report.Parts()) {
      if (part.kind != Report::Part::Kind::kText) document[part.name.key] = part.value;
    }
    return WithWarnings(std::move(document), warnings);
  }

  std::string Format(const Failure& failure,
                     const std::vector<std::string>& warnings) const override {
    Json::Value error = failure.details;
    error["exit_code"] = static_cast<int>(failure.code);
    error["kind"] = Describe(failure.code).name;
    error["message"] = failure.message;
    Json::Value document(Json::objectValue);
    document["error"] = error;
    return WithWarnings(std::move(document), warnings);
  }
};

}  // namespace

std::string FormatDocument(Json::Value document) {
  RepairTexts(document);
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  std::ostringstream out;
  const std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
  writer->write(document, &out);
  out << '\n';
  return out.str();
}

std::unique_ptr<Formatter> MakeJsonFormatter() {
  return std::make_unique<JsonFormatter>();
}

}  // namespace drgroupctl

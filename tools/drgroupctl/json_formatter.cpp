#include <json/writer.h>

#include <sstream>

#include "formatter.h"
#include "text.h"

namespace drgroupctl {

namespace {

// A catalogue keeps any bytes as text; a JSON document is UTF-8 throughout.
void RepairTexts(Json::Value& value) {
  if (value.isString()) {
    if (!IsUtf8(value.asString())) value = RepairUtf8(value.asString());
  } else if (value.isArray() || value.isObject()) {
    for (Json::Value& each : value) RepairTexts(each);
  }
}

std::string Write(Json::Value document) {
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

class JsonFormatter : public Formatter {
 public:
  std::string Format(const Report& report) const override {
    Json::Value document(Json::objectValue);
    for (const Report::Part& part : report.Parts()) {
      if (part.kind != Report::Part::Kind::kText) document[part.name.key] = part.value;
    }
    return Write(document);
  }

  std::string Format(const Failure& failure) const override {
    Json::Value error = failure.details;
    error["exit_code"] = static_cast<int>(failure.code);
    error["kind"] = Describe(failure.code).name;
    error["message"] = failure.message;
    Json::Value document(Json::objectValue);
    document["error"] = error;
    return Write(document);
  }
};

}  // namespace

std::unique_ptr<Formatter> MakeJsonFormatter() {
  return std::make_unique<JsonFormatter>();
}

}  // namespace drgroupctl

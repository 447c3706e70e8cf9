#include <vreldrcore/json.h>

#include <algorithm>
#include <utility>

#include "output/formatter.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using Part = Report::Part;
using Row = std::vector<std::string>;

std::string Cell(const Json::Value& value, Shown shown) {
  if (value.isNull()) return shown == Shown::kTime || shown == Shown::kAge ? "-" : "?";
  if (value.isBool()) return value.asBool() ? "yes" : "no";
  if (value.isString()) {
    const char* begin = nullptr;
    const char* end = nullptr;
    value.getString(&begin, &end);
    return begin == end ? "-" : Printable({begin, end});
  }
  if (value.isInt64() && shown == Shown::kAge) return FormatAge(value.asInt64());
  if (value.isUInt64()) {
    if (shown == Shown::kBytes) return FormatBytes(value.asUInt64());
    if (shown == Shown::kTime) return value.asUInt64() == 0 ? "-" : FormatTime(value.asInt64());
  }
  if (value.isArray()) {
    std::vector<std::string> texts;
    for (const Json::Value& each : value) texts.push_back(Cell(each, shown));
    return texts.empty() ? "-" : Join(texts, ", ");
  }
  return Printable(VrelDRCore::JsonUtil::ToString(value));
}

std::string Pad(const std::string& text, std::size_t width) {
  const std::size_t used = DisplayWidth(text);
  return used < width ? text + std::string(width - used, ' ') : text;
}

// Cells one below the other, two spaces apart, nothing behind the last.
std::string Align(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], DisplayWidth(row[i]));
    }
  }
  std::string out;
  for (const Row& row : rows) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) out += Pad(row[i], widths[i] + 2);
    if (!row.empty()) out += row.back();
    out += '\n';
  }
  return out;
}

bool IsShown(const Column& column, const Json::Value& rows) {
  return column.shown != Shown::kIfAny ||
         std::any_of(rows.begin(), rows.end(),
                     [&](const Json::Value& row) { return row[column.key] != Json::Value(""); });
}

bool IsShown(const Part& field) {
  const Json::Value& value = field.value;
  return field.name.shown != Shown::kIfAny ||
         (!value.isNull() && value != Json::Value("") && value != Json::Value(false));
}

std::string FormatTable(const Part& part) {
  std::vector<Column> columns;
  Row head;
  for (const Column& column : part.columns) {
    if (!IsShown(column, part.value)) continue;
    columns.push_back(column);
    head.push_back(column.title);
  }
  std::vector<Row> rows{head};
  for (const Json::Value& each : part.value) {
    Row row;
    for (const Column& column : columns) {
      row.push_back(Cell(VrelDRCore::JsonUtil::Member(each, column.key), column.shown));
    }
    rows.push_back(std::move(row));
  }
  return Align(rows);
}

class TableFormatter : public Formatter {
 public:
  // Fields that follow each other are aligned; an empty line stands before a table. A table without
  // rows is shown where it is all that there is to say.
  std::string Format(const Report& report,
                     const std::vector<std::string>& /*warnings*/) const override {
    std::string out;
    std::vector<Row> fields;
    const auto flush = [&] {
      out += Align(fields);
      fields.clear();
    };
    for (const Part& part : report.Parts()) {
      if (part.kind == Part::Kind::kField) {
        if (IsShown(part))
          fields.push_back({part.name.title + ":", Cell(part.value, part.name.shown)});
        continue;
      }
      flush();
      if (part.kind == Part::Kind::kText) {
        out += Printable(part.value.asString()) + '\n';
      } else if (!part.value.empty() || report.Parts().size() == 1) {
        out += (out.empty() ? "" : "\n") + FormatTable(part);
      }
    }
    flush();
    return out;
  }

  std::string Format(const Failure& failure,
                     const std::vector<std::string>& warnings) const override {
    return Format(failure.report, warnings);
  }
};

}  // namespace

std::unique_ptr<Formatter> MakeTableFormatter() {
  return std::make_unique<TableFormatter>();
}

}  // namespace drgroupctl

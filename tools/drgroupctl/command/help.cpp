#include "command/help.h"

#include <algorithm>

#include "output/exit_code.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

constexpr std::size_t kWidth = 79;

// `text` broken into lines of `kWidth`, each behind `indent` spaces.
std::string Wrap(const std::string& text, std::size_t indent) {
  std::string out;
  std::string line;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t end = std::min(text.find(' ', at), text.size());
    const std::string word = text.substr(at, end - at);
    if (!line.empty() && indent + line.size() + 1 + word.size() > kWidth) {
      out += std::string(indent, ' ') + line + '\n';
      line.clear();
    }
    line += (line.empty() ? "" : " ") + word;
    at = end + 1;
  }
  return out + std::string(indent, ' ') + line + '\n';
}

// `name`, and beside it `text` in a column of its own.
std::string Entry(const std::string& name, const std::string& text, std::size_t column) {
  const std::string wrapped = Wrap(text, column);
  const std::string head = "  " + name;
  if (head.size() + 2 > column) return head + '\n' + wrapped;
  return head + wrapped.substr(head.size());
}

bool IsWithin(const Verb& verb, const std::string& noun) {
  return noun.empty() || verb.name.starts_with(noun + " ");
}

Parameter VersionOption() {
  return {"--version", Value::kFlag, "", "print the version, and end"};
}

Json::Value TextList(const std::vector<std::string>& texts) {
  Json::Value list(Json::arrayValue);
  for (const std::string& each : texts) list.append(each);
  return list;
}

Json::Value ParameterDocument(const Parameter& parameter) {
  Json::Value document(Json::objectValue);
  document["name"] = parameter.name;
  document["summary"] = parameter.summary;
  document["takes_value"] = parameter.value != Value::kFlag;
  document["placeholder"] = parameter.placeholder;
  document["is_required"] = parameter.required;
  document["is_repeated"] = parameter.repeated;
  document["choices"] = TextList(parameter.choices);
  return document;
}

// What all verbs tell of themselves.
Json::Value SummaryDocument(const Verb& verb) {
  const std::string usage = verb.Usage();
  Json::Value document(Json::objectValue);
  document["name"] = verb.name;
  document["summary"] = verb.summary;
  document["usage"] = "drgroupctl " + verb.name + (usage.empty() ? "" : " " + usage);
  return document;
}

std::string ParameterHelp(const Parameter& each) {
  const std::string name = each.placeholder.empty() || each.placeholder == each.name
                               ? each.name
                               : each.name + " " + each.placeholder;
  return Entry(name, ParameterText(each), 22);
}

}  // namespace

std::string ParameterText(const Parameter& parameter) {
  if (parameter.choices.empty()) return parameter.summary;
  return parameter.summary + " (" + Join(parameter.choices, ", ") + ")";
}

std::string OverviewHelp(const std::string& noun) {
  std::string out = "usage: drgroupctl VERB [ARGUMENTS] [OPTIONS]\n\nVerbs:\n";
  for (const Verb& verb : Verbs()) {
    if (IsWithin(verb, noun)) out += Entry(verb.name, verb.summary, 22);
  }
  out += "\n  \"drgroupctl help VERB\" tells what a verb does and takes.\n";
  if (!noun.empty()) return out;
  out += "\nOptions of every verb:\n";
  for (const Parameter& each : CommonOptions()) out += ParameterHelp(each);
  out += ParameterHelp(VersionOption());
  out += "\nExit codes:\n";
  for (const ExitCodeInfo& each : ExitCodes()) {
    out += Entry(std::to_string(static_cast<int>(each.code)), each.meaning, 6);
  }
  return out;
}

Json::Value OverviewDocument(const std::string& noun) {
  Json::Value document(Json::objectValue);
  document["verbs"] = Json::Value(Json::arrayValue);
  for (const Verb& verb : Verbs()) {
    if (IsWithin(verb, noun)) document["verbs"].append(SummaryDocument(verb));
  }
  if (!noun.empty()) return document;
  for (const Parameter& each : CommonOptions()) document["options"].append(ParameterDocument(each));
  document["options"].append(ParameterDocument(VersionOption()));
  for (const ExitCodeInfo& each : ExitCodes()) {
    Json::Value code(Json::objectValue);
    code["exit_code"] = static_cast<int>(each.code);
    code["kind"] = each.name;
    code["meaning"] = each.meaning;
    document["exit_codes"].append(code);
  }
  return document;
}

Json::Value VerbDocument(const Verb& verb) {
  Json::Value document = SummaryDocument(verb);
  document["description"] = TextList(verb.description);
  document["changes"] = verb.changes;
  document["arguments"] = Json::Value(Json::arrayValue);
  document["options"] = Json::Value(Json::arrayValue);
  for (const Parameter& each : verb.arguments) {
    document["arguments"].append(ParameterDocument(each));
  }
  for (const auto* list : {&verb.options, &CommonOptions()}) {
    for (const Parameter& each : *list) document["options"].append(ParameterDocument(each));
  }
  return document;
}

std::string VerbHelp(const Verb& verb) {
  const std::string usage = verb.Usage();
  std::string out = "usage: drgroupctl " + verb.name + (usage.empty() ? "" : " " + usage) + "\n\n" +
                    Wrap(Sentence(verb.summary), 0);
  for (const std::string& paragraph : verb.description) out += '\n' + Wrap(paragraph, 0);
  out += "\nChanges: " + Wrap(verb.changes, 9).substr(9);
  if (!verb.arguments.empty()) out += "\nArguments:\n";
  for (const Parameter& each : verb.arguments) out += ParameterHelp(each);
  out += "\nOptions:\n";
  for (const Parameter& each : verb.options) out += ParameterHelp(each);
  for (const Parameter& each : CommonOptions()) out += ParameterHelp(each);
  return out;
}

}  // namespace drgroupctl

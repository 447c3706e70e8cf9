#include "command/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <deque>

#include "command/help.h"
#include "command/identifier.h"
#include "output/failure.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

using Words = std::vector<std::string>;

// What "plan drop-arrived" was called in an earlier version.
constexpr char kDropArrivedOnce[] = "plan rollback";

Failure UsageFailure(const std::string& text, const std::string& verb = std::string()) {
  return {ExitCode::kUsage,
          text + "; see \"drgroupctl help" + (verb.empty() ? "" : " " + verb) + "\""};
}

bool BeginsWith(const Words& words, const std::string& name) {
  const std::string said = Join(
      Words(words.begin(),
            words.begin() + std::min<std::ptrdiff_t>(2, static_cast<std::ptrdiff_t>(words.size()))),
      " ");
  return said == name || said.starts_with(name + " ");
}

bool IsNoun(const std::string& word) {
  return std::any_of(Verbs().begin(), Verbs().end(),
                     [&](const Verb& verb) { return verb.name.starts_with(word + " "); });
}

// The verb that `words` begin with. Throws when there is none; `words` has at least one.
const Verb& FindVerb(const Words& words) {
  for (const Verb& verb : Verbs()) {
    if (BeginsWith(words, verb.name)) return verb;
  }
  const std::string& noun = words[0];
  if (!IsNoun(noun)) throw UsageFailure("there is no verb " + Quote(noun));
  Words known;
  for (const Verb& verb : Verbs()) {
    if (verb.name.starts_with(noun + " ")) known.push_back(verb.name.substr(noun.size() + 1));
  }
  if (BeginsWith(words, kDropArrivedOnce)) {
    throw UsageFailure(
        "the verb " + Quote(kDropArrivedOnce) + " is called \"plan drop-arrived\" now: run that",
        "plan drop-arrived");
  }
  const bool named = words.size() > 1 && !words[1].starts_with('-');
  throw UsageFailure((named ? "there is no verb " + Quote(noun + " " + words[1])
                            : Quote(noun) + " needs a verb behind it") +
                         ": there are " + Join(known, ", "),
                     noun);
}

// The parser splits a value like [a,b] of an option that may be repeated. A zero byte, which no
// command line can hold, behind the bracket keeps the value in one piece.
std::string Protect(const std::string& word) {
  return !word.empty() && word.back() == ']' ? word + '\0' : word;
}
std::string Unprotect(std::string word) {
  if (!word.empty() && word.back() == '\0') word.pop_back();
  return word;
}

void CheckValue(const Verb& verb, const Parameter& parameter, const std::string& text) {
  switch (parameter.value) {
    case Value::kGroup:
    case Value::kNewGroup:
      CheckIdentifier("group", text);
      break;
    case Value::kTarget:
    case Value::kNewTarget:
      CheckIdentifier("target", text);
      break;
    case Value::kPlan:
      CheckIdentifier("plan", text);
      break;
    case Value::kVolume:
      CheckIdentifier("volume", text);
      break;
    case Value::kGsnap:
      CheckGsnapId(text);
      break;
    case Value::kText:
      if (!IsUtf8(text)) throw UsageFailure(parameter.name + " is not UTF-8 text", verb.name);
      break;
    case Value::kChoice:
      if (std::find(parameter.choices.begin(), parameter.choices.end(), text) ==
          parameter.choices.end()) {
        throw UsageFailure(
            parameter.name + " " + Quote(text) + ": choose one of " + Join(parameter.choices, ", "),
            verb.name);
      }
      break;
    default:
      break;
  }
}

// One parameter in the parser, and what the parser finds of it.
struct Binding {
  const Parameter* parameter;
  CLI::Option* option = nullptr;
  std::string one = {};
  Words many = {};
  bool flag = false;
};

void Bind(CLI::App& app, Binding& binding) {
  const Parameter& parameter = *binding.parameter;
  if (parameter.value == Value::kFlag) {
    // Whoever writes "--force=no" must not get what "--force" does.
    binding.option = app.add_flag(parameter.name, binding.flag)->disable_flag_override();
  } else if (parameter.repeated) {
    binding.option = app.add_option(parameter.name, binding.many);
  } else {
    binding.option = app.add_option(parameter.name, binding.one);
  }
}

// What the parser makes of `words`. Parameters that are missing are left to the caller.
void RunParser(CLI::App& app, const Verb& verb, const Words& words) {
  Words reversed;
  for (auto word = words.rbegin(); word != words.rend(); ++word) reversed.push_back(Protect(*word));
  try {
    app.parse(reversed);
  } catch (const CLI::ExtrasError&) {
    const std::string extra = Unprotect(app.remaining().front());
    throw UsageFailure(
        (extra.starts_with('-') ? "there is no option " : "there is too much: ") + Quote(extra),
        verb.name);
  } catch (const CLI::ArgumentMismatch& error) {
    const std::string what = error.what();
    if (what.find("flag override") != std::string::npos) {
      throw UsageFailure("--" + what.substr(0, what.find(' ')) + " takes no value", verb.name);
    }
    throw UsageFailure(what.substr(0, what.find(':')) + " needs a value, and takes it once",
                       verb.name);
  } catch (const CLI::ParseError& error) {
    throw UsageFailure(Printable(Unprotect(error.what())), verb.name);
  }
}

Command HelpOn(const Verb& verb) {
  return {nullptr, {}, VerbHelp(verb), VerbDocument(verb)};
}

Command Overview(const std::string& noun = std::string()) {
  return {nullptr, {}, OverviewHelp(noun), OverviewDocument(noun)};
}

Command Version() {
  Json::Value document(Json::objectValue);
  document["version"] = DRGROUPCTL_VERSION;
  return {nullptr, {}, "drgroupctl " DRGROUPCTL_VERSION "\n", document};
}

Command ParseVerb(const Verb& verb, const Words& words) {
  CLI::App app;
  app.set_help_flag();
  std::deque<Binding> bindings;
  for (const auto* list : {&verb.arguments, &verb.options, &CommonOptions()}) {
    for (const Parameter& parameter : *list) {
      Bind(app, bindings.emplace_back(Binding{&parameter}));
    }
  }
  RunParser(app, verb, words);

  Command command;
  command.verb = &verb;
  for (const Binding& each : bindings) {
    if (each.option->count() == 0) continue;
    Words values = each.parameter->repeated ? each.many : Words{each.one};
    for (std::string& value : values) value = Unprotect(value);
    command.arguments.Set(each.parameter->name, values);
  }
  if (command.arguments.Has("--help")) return HelpOn(verb);
  for (const Binding& each : bindings) {
    const Parameter& parameter = *each.parameter;
    if (parameter.required && !command.arguments.Has(parameter.name)) {
      throw UsageFailure(parameter.name + " is missing: " + parameter.summary, verb.name);
    }
    if (parameter.value == Value::kFlag) continue;
    for (const std::string& value : command.arguments.List(parameter.name)) {
      CheckValue(verb, parameter, value);
    }
  }
  return command;
}

Command Help(Words words) {
  words.erase(std::remove(words.begin(), words.end(), "--json"), words.end());
  if (words.empty() || words[0] == "help") return Overview();
  if (words.size() == 1 && IsNoun(words[0])) return Overview(words[0]);
  return HelpOn(FindVerb(words));
}

}  // namespace

bool WantsJson(const std::vector<std::string>& words) {
  return std::find(words.begin(), words.end(), "--json") != words.end();
}

Command ParseCommandLine(const std::vector<std::string>& words) {
  Words rest = words;
  // Options of every verb may also stand before it.
  Words before;
  while (!rest.empty() && rest.front().starts_with('-')) {
    if (rest.front() == "--version") return Version();
    if (rest.front() != "--json" && rest.front() != "--help") {
      throw UsageFailure("there is no option " + Quote(rest.front()) + " before a verb");
    }
    before.push_back(rest.front());
    rest.erase(rest.begin());
  }
  const bool wantsHelp = std::find(before.begin(), before.end(), "--help") != before.end();
  if (rest.empty()) {
    if (wantsHelp) return Help({});
    throw UsageFailure("a verb is missing");
  }
  if (rest.front() == "help") return Help(Words(rest.begin() + 1, rest.end()));
  if (wantsHelp) return Help(rest);
  if (IsNoun(rest[0]) &&
      std::all_of(rest.begin() + 1, rest.end(),
                  [](const std::string& word) { return word == "--help" || word == "--json"; }) &&
      std::find(rest.begin(), rest.end(), "--help") != rest.end()) {
    return Help({rest[0]});
  }

  const Verb& verb = FindVerb(rest);
  const auto count = std::count(verb.name.begin(), verb.name.end(), ' ') + 1;
  rest.erase(rest.begin(), rest.begin() + count);
  rest.insert(rest.begin(), before.begin(), before.end());
  return ParseVerb(verb, rest);
}

}  // namespace drgroupctl

#include "completion.h"

#include "text.h"
#include "verb.h"

namespace drgroupctl {

namespace {

// The command that offers values of this kind for the word "$cur"; empty when there is none.
std::string Offer(const Parameter& parameter) {
  switch (parameter.value) {
    case Value::kGroup:
      return "_drgroupctl_offer \"$(_drgroupctl_first_column group list)\"";
    case Value::kTarget:
      return "_drgroupctl_offer \"$(_drgroupctl_first_column target list)\"";
    case Value::kVolume:
      return "_drgroupctl_offer \"$(_drgroupctl_first_column volume list)\"";
    case Value::kGsnap:
      return "_drgroupctl_offer \"$(_drgroupctl_gsnaps)\"";
    case Value::kChoice:
      return "_drgroupctl_offer '" + Join(parameter.choices, "\n") + "'";
    case Value::kDirectory:
      return "_drgroupctl_files -d";
    case Value::kPath:
      return "_drgroupctl_files -f";
    default:
      return {};
  }
}

constexpr char kHelpers[] = R"sh(
# The first column of a listing without its head. A listing that takes long is not worth waiting for.
_drgroupctl_first_column() {
  timeout 2 drgroupctl "$@" 2>/dev/null | sed '1d; s/  .*//'
}

_drgroupctl_gsnaps() {
  local group
  _drgroupctl_first_column group list | while IFS= read -r group; do
    _drgroupctl_first_column snapshot list "$group"
  done
}

# Offers those lines of $1 that begin with the word.
_drgroupctl_offer() {
  local line
  while IFS= read -r line; do
    [[ -n $line && $line == "$cur"* ]] && COMPREPLY+=("$(printf '%q' "$line")")
  done <<<"$1"
}

_drgroupctl_files() {
  compopt -o filenames 2>/dev/null
  local line
  while IFS= read -r line; do
    COMPREPLY+=("$line")
  done < <(compgen "$1" -- "$cur")
}
)sh";

std::string FirstWords(const std::string& noun) {
  std::vector<std::string> words;
  for (const Verb& verb : Verbs()) {
    const std::size_t space = verb.name.find(' ');
    const std::string first = verb.name.substr(0, space);
    const std::string word = noun.empty()    ? first
                             : first == noun ? verb.name.substr(space + 1)
                                             : std::string();
    if (!word.empty() && (words.empty() || words.back() != word)) words.push_back(word);
  }
  return Join(words, "\n");
}

std::string OptionNames(const Verb& verb) {
  std::vector<std::string> names;
  for (const auto* list : {&verb.options, &CommonOptions()}) {
    for (const Parameter& each : *list) names.push_back(each.name);
  }
  return Join(names, "\n");
}

// What is offered for one verb: an option's value behind the option, options behind a hyphen, else
// values of the verb's last argument, or of an option that takes several.
std::string VerbCase(const Verb& verb) {
  std::string out = "    '" + verb.name + "')\n      case $option in\n";
  for (const Parameter& each : verb.options) {
    const std::string offer = Offer(each);
    if (each.value != Value::kFlag) {
      out += "        " + each.name + ") " + (offer.empty() ? ":" : offer) + "; return ;;\n";
    }
  }
  out += "      esac\n      [[ $cur == -* ]] && { _drgroupctl_offer '" + OptionNames(verb) +
         "'; return; }\n";
  const std::string offer = verb.arguments.empty() ? "" : Offer(verb.arguments.back());
  return out + (offer.empty() ? "" : "      " + offer + "\n") + "      ;;\n";
}

}  // namespace

std::string BashCompletion() {
  std::string nouns;
  std::string cases;
  std::string several;
  for (const Verb& verb : Verbs()) {
    const std::string noun = verb.name.substr(0, verb.name.find(' '));
    const std::string line =
        "      " + noun + ") _drgroupctl_offer '" + FirstWords(noun) + "' ;;\n";
    if (verb.name.find(' ') != std::string::npos && nouns.find(line) == std::string::npos) {
      nouns += line;
    }
    cases += VerbCase(verb);
    for (const Parameter& each : verb.options) {
      if (each.repeated) several += " " + each.name;
    }
  }
  return "# bash completion for drgroupctl, made from its table of verbs.\n" +
         std::string(kHelpers) + R"sh(
_drgroupctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} option first=1 i
  COMPREPLY=()
  [[ ${COMP_WORDS[1]} == help ]] && first=2
  if ((COMP_CWORD == first)); then
    _drgroupctl_offer ')sh" +
         FirstWords("") + R"sh(
help'
    return
  fi
  if ((COMP_CWORD == first + 1)); then
    case ${COMP_WORDS[first]} in
)sh" + nouns +
         R"sh(    esac
    return
  fi
  # The option that the word may be a value of: the word before it, or one that takes several.
  for ((i = COMP_CWORD - 1; i > first + 1; i--)); do
    [[ ${COMP_WORDS[i]} == -* ]] && break
  done
  option=${COMP_WORDS[i]}
  ((i == COMP_CWORD - 1)) || [[ ')sh" +
         several + R"sh( ' == *" $option "* ]] || option=
  case "${COMP_WORDS[first]} ${COMP_WORDS[first + 1]}" in
)sh" + cases +
         R"sh(  esac
}

complete -F _drgroupctl drgroupctl
)sh";
}

}  // namespace drgroupctl

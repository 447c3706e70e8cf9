#include "command/completion.h"

#include "command/verb.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// The command that offers values of this kind for the word "$cur"; empty when there is none.
std::string Offer(const Parameter& parameter) {
  switch (parameter.value) {
    case Value::kGroup:
      return "_drgroupctl_offer \"$(_drgroupctl_first_column group list)\"";
    case Value::kTarget:
      return "_drgroupctl_offer \"$(_drgroupctl_first_column target list)\"";
    case Value::kPlan:
      return "_drgroupctl_offer \"$(_drgroupctl_first_column plan list)\"";
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

// What is offered at the place of each argument; the last one's wherever options have moved it.
std::string ArgumentOffers(const Verb& verb) {
  std::string out;
  for (std::size_t i = 0; i < verb.arguments.size(); ++i) {
    const bool isLast = i + 1 == verb.arguments.size();
    const std::string offer = Offer(verb.arguments[i]);
    out += "        " + (isLast ? "*" : std::to_string(i)) + ") " + (offer.empty() ? ":" : offer) +
           " ;;\n";
  }
  return out.empty() ? out : "      case $((COMP_CWORD - last - 1)) in\n" + out + "      esac\n";
}

// What is offered for one verb: an option's value behind the option, options behind a hyphen, else
// values of the argument at that place, or of an option that takes several.
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
  return out + ArgumentOffers(verb) + "      ;;\n";
}

}  // namespace

std::string BashCompletion() {
  std::string nouns;
  std::string cases;
  std::string several;
  std::string single;
  for (const Verb& verb : Verbs()) {
    const std::size_t space = verb.name.find(' ');
    const std::string noun = verb.name.substr(0, space);
    if (space == std::string::npos) {
      single += (single.empty() ? "" : " | ") + noun;
    } else {
      const std::string line =
          "      " + noun + ") _drgroupctl_offer '" + FirstWords(noun) + "' ;;\n";
      if (nouns.find(line) == std::string::npos) nouns += line;
    }
    cases += VerbCase(verb);
    for (const Parameter& each : verb.options) {
      if (each.repeated) several += " " + each.name;
    }
  }
  return "# bash completion for drgroupctl, made from its table of verbs.\n" +
         std::string(kHelpers) + R"sh(
_drgroupctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} option first=1 last i
  COMPREPLY=()
  [[ ${COMP_WORDS[1]} == help ]] && first=2
  if ((COMP_CWORD == first)); then
    _drgroupctl_offer ')sh" +
         FirstWords("") + R"sh(
help'
    return
  fi
  # Where the verb ends, which has one word or two.
  case ${COMP_WORDS[first]} in
    )sh" +
         single + R"sh() last=$first ;;
    *) last=$((first + 1)) ;;
  esac
  if ((COMP_CWORD == last)); then
    case ${COMP_WORDS[first]} in
)sh" + nouns +
         R"sh(    esac
    return
  fi
  ((first == 2)) && return
  # The option that the word may be a value of: the word before it, or one that takes several.
  for ((i = COMP_CWORD - 1; i > last; i--)); do
    [[ ${COMP_WORDS[i]} == -* ]] && break
  done
  option=${COMP_WORDS[i]}
  ((i == COMP_CWORD - 1)) || [[ ')sh" +
         several + R"sh( ' == *" $option "* ]] || option=
  case "${COMP_WORDS[*]:first:last-first+1}" in
)sh" + cases +
         R"sh(  esac
}

complete -F _drgroupctl drgroupctl
)sh";
}

}  // namespace drgroupctl

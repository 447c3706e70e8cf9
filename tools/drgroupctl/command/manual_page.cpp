#include "command/manual_page.h"

#include "command/help.h"
#include "command/verb.h"
#include "output/exit_code.h"
#include "output/text.h"

namespace drgroupctl {

namespace {

// Text that roff prints as it stands.
std::string Plain(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
  }
  return !out.empty() && (out[0] == '.' || out[0] == '\'') ? "\\&" + out : out;
}

// A macro with one argument of any text.
std::string Macro(const std::string& name, const std::string& text) {
  std::string quoted;
  for (const char c : Plain(text)) quoted += c == '"' ? "\\(dq" : std::string(1, c);
  return "." + name + " \"" + quoted + "\"\n";
}

std::string Paragraph(const std::string& text) {
  return ".PP\n" + Plain(text) + '\n';
}

std::string Tagged(const std::string& tag, const std::string& text) {
  return ".TP\n" + Macro("B", tag) + Plain(text) + '\n';
}

std::string ParameterEntry(const Parameter& each) {
  const std::string tag = each.placeholder.empty() || each.placeholder == each.name
                              ? each.name
                              : each.name + " " + each.placeholder;
  return Tagged(tag, ParameterText(each));
}

std::string VerbSection(const Verb& verb) {
  const std::string usage = verb.Usage();
  std::string out = Macro("SS", verb.name + (usage.empty() ? "" : " " + usage));
  out += Plain(Sentence(verb.summary)) + '\n';
  for (const std::string& paragraph : verb.description) out += Paragraph(paragraph);
  out += Paragraph("Changes: " + verb.changes);
  for (const Parameter& each : verb.arguments) out += ParameterEntry(each);
  for (const Parameter& each : verb.options) out += ParameterEntry(each);
  return out;
}

}  // namespace

std::string ManualPage(const std::string& linkPath) {
  std::string out =
      ".TH DRGROUPCTL 1 \"\" \"drgroupctl " DRGROUPCTL_VERSION "\" \"User Commands\"\n";
  out += ".SH NAME\ndrgroupctl \\- group snapshots and replication of disaster recovery groups\n";
  out += ".SH SYNOPSIS\n.B drgroupctl\n.I VERB\n.RI [ ARGUMENTS ]\n.RI [ OPTIONS ]\n";
  out += ".SH DESCRIPTION\n";
  out +=
      Plain(
          "Makes targets on the volumes of this host, puts them into groups, and takes, shows, "
          "restores, clones and deletes snapshots of whole groups. Protects groups by plans that "
          "replicate their targets to another volume, and lets the copies take over.") +
      '\n';
  out += Paragraph(
      "An identifier has 1 to 200 bytes of UTF-8 text without slashes, backslashes, quotes and "
      "control characters, and does not begin with a dot or a hyphen. A group snapshot is called "
      "GROUP-gsnap-SECONDS, after its group and the time of its first target snapshot in seconds "
      "since 1970. An option's value that begins with a hyphen is written behind an equals sign, "
      "as in --description=-x.");
  out += ".SH VERBS\n";
  for (const Verb& verb : Verbs()) out += VerbSection(verb);
  out +=
      Macro("SS", "help [VERB]") + "Tell what a verb does and takes, or which verbs there are.\n";
  out += ".SH OPTIONS\nEvery verb has these.\n";
  for (const Parameter& each : CommonOptions()) out += ParameterEntry(each);
  out += Tagged("--version", "print the version, and end; instead of a verb");
  out += ".SH OUTPUT\n";
  out += Plain(
             "Standard output has the report of the verb, as a table with control characters "
             "escaped, or with --json as one JSON document whose keys stay the same in later "
             "versions. A failure is one line on standard error; with --json, standard output then "
             "has a document with the member \"error\", which has \"exit_code\", \"kind\" and "
             "\"message\", and where they are known \"target_id\" (the target that failed), "
             "\"targets\" (what became of each), \"checks\" (what was found before anything was "
             "done), \"losses\" (what would be given up, in lines for people), \"left_snapshots\" "
             "(target snapshots that stay), "
             "\"left_clones\" (clones that stay), \"deleted\" and \"changed\" (what was repaired) "
             "and \"groups\" (what became of each).") +
         '\n';
  out += ".SH EXIT STATUS\n";
  for (const ExitCodeInfo& each : ExitCodes()) {
    out += Tagged(std::to_string(static_cast<int>(each.code)) + " " + each.name, each.meaning);
  }
  out += ".SH ENVIRONMENT\n";
  out +=
      Tagged("VRELDR_CONFIG", "The host's configuration file, instead of /etc/vreldr/vreldr.json.");
  out += ".SH FILES\n";
  out += Tagged("/etc/vreldr/vreldr.json",
                "The host's configuration: its state directory and its volumes.");
  out += Tagged(linkPath, "The link to the group's catalogue.");
  out += Tagged("drgroup.db, group.json",
                "The group's catalogue and its definition, in the group's directory.");
  return out;
}

}  // namespace drgroupctl

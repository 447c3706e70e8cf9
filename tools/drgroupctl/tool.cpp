#include "tool.h"

#include <vreldr/session.h>

#include <exception>
#include <memory>
#include <new>
#include <optional>

#include "action/recorded_run.h"
#include "command/command_line.h"
#include "output/console.h"
#include "output/formatter.h"

namespace drgroupctl {

namespace {

std::unique_ptr<Formatter> MakeFormatter(bool json) {
  return json ? MakeJsonFormatter() : MakeTableFormatter();
}

// The run that the verb is stays in `run`.
int Run(const std::vector<std::string>& words, std::optional<RecordedRun>& run,
        Warnings& warnings) {
  const Command command = ParseCommandLine(words);
  if (command.verb == nullptr) {
    PrintOut(WantsJson(words) ? FormatDocument(command.document) : command.text);
    return static_cast<int>(ExitCode::kDone);
  }
  const VrelDR::Session session;
  run.emplace(*command.verb, command.arguments, warnings);
  const Report report = run->Run();
  PrintOut(MakeFormatter(command.arguments.Has("--json"))->Format(report, warnings.Printed()));
  return report.GetExitCode();
}

int Tell(const Failure& failure, const std::vector<std::string>& words, const Warnings& warnings) {
  PrintError(failure.message);
  try {
    PrintOut(MakeFormatter(WantsJson(words))->Format(failure, warnings.Printed()));
  } catch (const Failure&) {  // the line above and the exit code have told it
  }
  return static_cast<int>(failure.code);
}

}  // namespace

int RunTool(const std::vector<std::string>& words) {
  Warnings warnings;
  std::optional<RecordedRun> run;  // tells the group's hook last of all
  try {
    try {
      return Run(words, run, warnings);
    } catch (const Failure& failure) {
      return Tell(failure, words, warnings);
    }
  } catch (const std::bad_alloc&) {
    PrintError("out of memory: free some and run it again");
  } catch (const std::exception& error) {
    PrintError(std::string("an internal error, please report it: ") + error.what());
  }
  return static_cast<int>(ExitCode::kFailed);
}

}  // namespace drgroupctl

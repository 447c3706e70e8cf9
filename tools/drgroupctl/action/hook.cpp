#include "action/hook.h"

#include <chrono>
#include <cstdlib>
#include <system_error>

#include "host/program.h"
#include "output/text.h"

namespace drgroupctl {

void TellHook(const std::vector<std::string>& command, const HookEvent& event, Warnings& warnings) {
  constexpr std::chrono::seconds kTime(60);
  // What a hook runs tells no hook: one that fails by itself would never come to an end.
  if (std::getenv("DRGROUP_RESULT") != nullptr) return;
  ProgramSpec spec;
  spec.argv = command;
  spec.argv.insert(spec.argv.end(), {event.group_id, event.kind, event.result});
  spec.environment = {"DRGROUP_GROUP=" + event.group_id, "DRGROUP_KIND=" + event.kind,
                      "DRGROUP_RESULT=" + event.result,
                      "DRGROUP_EXIT_CODE=" + std::to_string(event.exit_code),
                      "DRGROUP_MESSAGE=" + event.message};
  spec.is_grouped = true;
  const std::string about =
      "the hook " + Quote(command.front()) + " of group " + Quote(event.group_id);
  Program program;
  if (const int error = program.Start(spec)) {
    warnings.Print(about + " could not be run: " + std::generic_category().message(error));
    return;
  }
  const std::optional<int> code = program.Wait(kTime);
  if (!code) {
    program.Kill();
    warnings.Print(about + " was ended, as it had not within " + FormatAge(kTime.count()));
  } else if (*code != 0) {
    warnings.Print(about + " ended with exit code " + std::to_string(*code));
  }
}

}  // namespace drgroupctl

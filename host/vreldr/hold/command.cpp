#include "hold/ask.h"
#include "hold/means.h"

namespace VrelDR {

namespace {

Status Prepare(const std::vector<std::string>& args, const std::string& what, Runnable& runnable) {
  std::vector<std::string> found = args;
  Status status = FindRunnable(args[0], "the program of the " + what + " command", found[0]);
  runnable = Runnable(std::move(found));
  return status;
}

}  // namespace

Status OpenCommand(const QuiesceCommand& command, HeldWriter& writer) {
  writer.name = "command " + Quoted(command.freeze[0]);
  writer.stage = GuardThing::kCommand;
  const Status status = Prepare(command.freeze, "freeze", writer.freeze);
  return status.IsOk() ? Prepare(command.thaw, "thaw", writer.thaw) : status;
}

}  // namespace VrelDR

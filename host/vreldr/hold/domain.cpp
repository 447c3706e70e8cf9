#include "hold/ask.h"
#include "hold/means.h"

namespace VrelDR {

namespace {

constexpr char kPing[] = R"({"execute":"guest-ping"})";
constexpr char kPingPatience[] = "2";  // seconds

}  // namespace

Status OpenDomain(const std::string& domain, HeldWriter& writer) {
  writer.name = "domain " + Quoted(domain);
  writer.stage = GuardThing::kDomain;
  std::string virsh;
  std::string state;
  Status status = FindRunnable("virsh", "the program", virsh);
  const auto args = [&](const char* verb) {
    return std::vector<std::string>{virsh, "-q", verb, "--domain", domain};
  };
  if (status.IsOk()) status = Ask(args("domstate"), state);
  if (!status.IsOk()) return InContext(writer.name, status);
  state = LastLine(state);
  if (state != "running") {
    return {kErrNotHeld, writer.name + " is not running, but in state " + Quoted(state) +
                             "; let it run, or take it off the group's means"};
  }
  std::vector<std::string> ping = args("qemu-agent-command");
  ping.insert(ping.end(), {"--timeout", kPingPatience, "--cmd", kPing});
  std::string ignored;
  const bool hasAgent = Ask(ping, ignored).IsOk();
  writer.freeze = Runnable(args(hasAgent ? "domfsfreeze" : "suspend"));
  writer.thaw = Runnable(args(hasAgent ? "domfsthaw" : "resume"));
  return {};
}

}  // namespace VrelDR

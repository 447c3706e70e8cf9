#include "vreldr/session.h"

#include <map>
#include <mutex>
#include <thread>

#include "target/host.h"
#include "vreldrnode/open_config.h"

namespace VrelDR {

namespace {

// What is open, by thread; empty as long as the configuration is not kept.
struct Registry {
  std::mutex mutex;
  std::map<std::thread::id, std::shared_ptr<Host>> hosts;
};

Registry& TheRegistry() {
  static Registry registry;
  return registry;
}

}  // namespace

Session::Session() {
  // What a parent process had open is not this one's.
  if (!VrelHost::IsConfigKept()) CloseTheHost();
  VrelHost::KeepConfig();
}

Session::~Session() {
  VrelHost::DropConfig();
  if (!VrelHost::IsConfigKept()) CloseTheHost();
}

std::shared_ptr<Host> TheHost() {
  if (!VrelHost::IsConfigKept()) return std::make_shared<Host>();
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  std::shared_ptr<Host>& host = registry.hosts[std::this_thread::get_id()];
  if (!host) host = std::make_shared<Host>();
  return host;
}

void CloseTheHost() {
  Registry& registry = TheRegistry();
  const std::lock_guard lock(registry.mutex);
  registry.hosts.clear();
}

}  // namespace VrelDR

#pragma once

#include <string>

// The library works on fixed paths under /var. A test program gets a /var of its own, so that tests
// run side by side, need no root where the kernel lets a user make namespaces, and leave the
// machine as it was.
namespace test_support {

// Moves the calling thread, and every thread and process that it starts from then on, to a mount
// namespace of its own with an empty /var. To be called before any other thread is started. On a
// failure `why` names the step that failed and what to do; the process may then be in a namespace
// of its own already and should end.
bool EnterPrivateNamespace(std::string& why);

// Puts the database script and its SQL files at the place where the library runs them, replacing
// what is there. Only after EnterPrivateNamespace.
bool InstallDbScript(std::string& why);

// Where InstallDbScript puts the script.
inline constexpr char kDbScript[] = "/var/packages/Guestora/target/sbin//vreldrgroup_db.sh";

}  // namespace test_support

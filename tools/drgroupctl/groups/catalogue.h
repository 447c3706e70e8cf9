#pragma once

#include <optional>
#include <string>

#include "output/failure.h"

// What is wrong with a group's catalogue. The library tells a code; people are told what to do.
namespace drgroupctl {

// Why a catalogue cannot be used: text that begins with the file and ends with what to do.
struct CatalogueProblem {
  ExitCode code;
  std::string text;
};

enum class Access { kRead, kWrite };

// How long a command waits for another process's lock on a catalogue, in seconds.
inline constexpr unsigned int kPatience = 20;

// Looks whether the database that the group's link leads to can be read, or written, and has its
// tables. Costs a few small reads, and waits up to `seconds` for another process's lock.
std::optional<CatalogueProblem> ExamineCatalogue(const std::string& groupId, Access access,
                                                 unsigned int seconds);

// The same of a database by its path.
std::optional<CatalogueProblem> ExamineDatabase(const std::string& path, Access access,
                                                unsigned int seconds);

// Throws what CheckOwner and ExamineCatalogue find; waits as long as a writer is given.
void RequireCatalogue(const std::string& groupId, Access access);

// The reason why the library could not use the catalogue, as far as it can be found out afterwards;
// reads the whole database if it has to. `what` says what was being done, such as "cannot list its
// snapshots"; `said` is what the database script said, if anything.
Failure CatalogueFailure(const std::string& groupId, const std::string& what,
                         const std::string& said = std::string());

// The database script: what is wrong when it cannot be run.
std::optional<CatalogueProblem> ExamineScript();

}  // namespace drgroupctl

#pragma once

#include <filesystem>
#include <string>

#include "workplace.h"

namespace bench {

// Each registers the measurements of one of the library's works.
void RegisterInsert(Workplace& place);
void RegisterRead(Workplace& place);
void RegisterList(Workplace& place);
void RegisterCreate(Workplace& place);
void RegisterDelete(Workplace& place);
void RegisterRepair(Workplace& place);
void RegisterRename(Workplace& place);
void RegisterScript(Workplace& place);

// The same of the stand-alone host's and the tool's works; their volumes and groups are made in
// `dir`.
void RegisterShip(const std::filesystem::path& dir);
void RegisterShipTree(const std::filesystem::path& dir);
void RegisterPlans(const std::filesystem::path& dir);
void RegisterCut(const std::filesystem::path& dir);
void RegisterRealCreation(const std::filesystem::path& dir);
void RegisterHeldCut(const std::filesystem::path& dir);
void RegisterYear(const std::filesystem::path& dir);
void RegisterYearOfGroups(const std::filesystem::path& dir);

// When a listing's memory is measured, this program runs itself with kListOnce and "ours:GROUP" or
// "raw:GROUP", or "ours-parts:GROUP" or "raw-parts:GROUP", as its only argument: what is after the
// prefix goes in here. Prints the KiB that one listing takes and returns the exit status.
inline constexpr char kListOnce[] = "--list-once=";
int ListOnce(const std::string& what);

}  // namespace bench

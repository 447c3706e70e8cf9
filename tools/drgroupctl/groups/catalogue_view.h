#pragma once

#include <vreldrgroup/record/gsnapshot.h>

#include <string>
#include <vector>

#include "output/report.h"

// A group's catalogue as verbs show it. Everything here throws what makes the catalogue unusable.
namespace drgroupctl {

// The members that every report of a group snapshot has, as columns and as a row.
std::vector<Column> GsnapColumns();
Json::Value GsnapRow(const VrelDRGroup::Gsnapshot& gsnap);

// "unspecified", "crash", "application", and back; 0 for another word.
std::string ConsistencyName(VrelDRGroup::GsnapCwType type);
VrelDRGroup::GsnapCwType ConsistencyNumber(const std::string& name);
std::vector<std::string> ConsistencyNames();

std::vector<std::string> ListGsnapIds(const std::string& groupId);
std::vector<VrelDRGroup::Gsnapshot> ListGsnaps(const std::string& groupId, bool latestOnly);

// The group snapshot with its parts; throws also when there is none of that name.
VrelDRGroup::GsnapshotInfo RequireGsnap(const std::string& gsnapId);

// One row for each target snapshot of `info`, with whether it really exists, and the columns.
Json::Value TargetSnapshotRows(const VrelDRGroup::GsnapshotInfo& info);
std::vector<Column> TargetSnapshotColumns();

}  // namespace drgroupctl

#pragma once

#include "protocol/request.h"

// What decisions are made of; for the files that make them.
namespace VrelDR::Protocol {

Decision Refuse(Refusal refusal);

// Adds a step without a record.
void AddStep(Decision& decision, StepKind kind, const std::string& id = {});

// Adds the commit of the record.
void AddCommit(Decision& decision, const SideRecord& record);

// Makes the copy of a record that works writable, which is committed already: at the snapshot that
// it is to start at, if there is one.
void AddPromotion(Decision& decision, SideRecord record);

// Makes the copy unwritable, in `record` too, if it is writable.
void AddUnwritable(Decision& decision, SideRecord& record);

// Takes the attempt out of the journal.
void EndAttempt(SideRecord& record);

// The requests of an attempt that is in the journal, but for kBegin and kVoid, which need not find
// it.
Decision Begin(const SideRecord& mine, const Request& request);
Decision PrepareCopy(const SideRecord& mine, const Attempt& attempt);
Decision TakeSnapshot(const SideRecord& mine, const Attempt& attempt);
Decision GiveUp(const SideRecord& mine, const Attempt& attempt);
Decision Receive(const SideRecord& mine, const Request& request);
Decision Commit(const SideRecord& mine, const Request& request);
Decision Finish(const SideRecord& mine, const Request& request);
Decision Close(const SideRecord& mine, const Request& request);
Decision Void(const SideRecord& mine, const Attempt& attempt);
Decision TakeBack(const SideRecord& mine, const Request& request);

// The requests of none.
Decision Meet(const SideRecord& mine, const SideRecord& theirs);
Decision Take(const SideRecord& mine, const SideRecord& theirs);
Decision ForceWork(const SideRecord& mine, const Attempt& order);
Decision ForceDelete(const SideRecord& mine, const Attempt& order);

// Follows the record of the other side, whose term follows the one here or comes with an attempt
// that is in the journal here: unwritable first, then the record. Never makes the copy writable.
Decision Adopt(const SideRecord& mine, const SideRecord& theirs);

}  // namespace VrelDR::Protocol

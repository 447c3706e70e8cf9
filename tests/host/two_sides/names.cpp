#include "names.h"

namespace two_sides {

using VrelDR::Protocol::Outcome;
using VrelDR::Protocol::RequestKind;
using VrelDR::Protocol::SideState;

std::string Named(Side side) {
  return side == Side::kMain ? "main" : "DR";
}

std::string Named(Op op) {
  switch (op) {
    case Op::kNone:
      return "settle";
    case Op::kCreate:
      return "create";
    case Op::kSync:
      return "sync";
    case Op::kEdit:
      return "edit";
    case Op::kDelete:
      return "delete";
    case Op::kSwitchover:
      return "switchover";
    case Op::kFailover:
      return "failover";
    case Op::kRevert:
      return "revert";
    case Op::kReprotect:
      return "reprotect";
    case Op::kResolve:
      return "resolve";
  }
  return "?";
}

std::string Named(RequestKind kind) {
  switch (kind) {
    case RequestKind::kTell:
      return "tell";
    case RequestKind::kTake:
      return "take";
    case RequestKind::kForget:
      return "forget";
    case RequestKind::kMend:
      return "mend";
    case RequestKind::kBegin:
      return "begin";
    case RequestKind::kPrepareCopy:
      return "prepare a copy";
    case RequestKind::kSnapshot:
      return "take a snapshot";
    case RequestKind::kGiveUp:
      return "give up";
    case RequestKind::kReceive:
      return "receive";
    case RequestKind::kCommit:
      return "commit";
    case RequestKind::kFinish:
      return "finish";
    case RequestKind::kClose:
      return "close";
    case RequestKind::kVoid:
      return "void";
    case RequestKind::kTakeBack:
      return "take back";
    case RequestKind::kForceWork:
      return "FORCE to work";
    case RequestKind::kForceDelete:
      return "FORCE to be deleted";
  }
  return "?";
}

std::string Named(SideState state) {
  switch (state) {
    case SideState::kNone:
      return "none";
    case SideState::kWorks:
      return "works";
    case SideState::kReplica:
      return "replica";
    case SideState::kHeld:
      return "held";
    case SideState::kFenced:
      return "fenced";
    case SideState::kDiverged:
      return "diverged";
    case SideState::kGone:
      return "gone";
  }
  return "?";
}

std::string Named(Outcome outcome) {
  switch (outcome) {
    case Outcome::kAsk:
      return "asks";
    case Outcome::kDone:
      return "done";
    case Outcome::kTakenBack:
      return "taken back";
    case Outcome::kRefused:
      return "refused";
    case Outcome::kHeld:
      return "held";
    case Outcome::kDiverged:
      return "diverged";
  }
  return "?";
}

}  // namespace two_sides

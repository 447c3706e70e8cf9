#include "begins.h"

#include "moves.h"

namespace two_sides {

using VrelDR::Protocol::HasCommitted;
using VrelDR::Protocol::Move;
using VrelDR::Protocol::RequestKind;

World Unprotected(const Budget& budget) {
  World world;
  world.left = budget;
  world.Of(Side::kDR).side = Side::kDR;
  world.Of(Side::kMain).is_writable = true;
  world.Of(Side::kMain).target_id = "m";
  world.CopyOf(Side::kMain).target_id = "m";
  return world;
}

World Protected(const Budget& budget) {
  World world = Unprotected(budget);
  Write(world, Side::kMain);
  RunAlone(world, Side::kMain, Op::kCreate, Side::kMain, Mutation::kNone);
  RunAlone(world, Side::kMain, Op::kSync, Side::kMain, Mutation::kNone);
  return world;
}

World FailedOver(const Budget& budget) {
  World world = Protected(budget);
  Write(world, Side::kMain);
  RunAlone(world, Side::kMain, Op::kFailover, Side::kMain, Mutation::kNone);
  return world;
}

World BothChanged(const Budget& budget) {
  World world = Protected(budget);
  Driver driver = NewDriver(world, Side::kMain, Op::kSwitchover, Side::kMain);
  while (world.broken.empty() && !driver.has_seen_commit) {
    const Move move = NextMove(driver, world.Of(Side::kMain));
    const Refusal refusal = Handle(world, move.to, move.request, Fate(), Mutation::kNone);
    if (refusal != Refusal::kNone) world.Break("a switchover of nothing else is refused");
    TakeAnswer(driver, move, refusal, world.Of(move.to));
  }
  Request force;
  force.kind = RequestKind::kForceWork;
  force.attempt.id = "f";
  (void)Handle(world, Side::kMain, force, Fate(), Mutation::kNone);
  Write(world, Side::kMain);
  Write(world, Side::kDR);
  SettleAll(world, Mutation::kNone);
  return world;
}

}  // namespace two_sides

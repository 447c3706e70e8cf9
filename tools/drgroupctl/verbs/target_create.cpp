#include "host/new_target.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

Report RunTargetCreate(const Arguments& args, Warnings& /*warnings*/) {
  VrelDR::TargetSpec spec = NewTargetSpec(args);
  const bool isLun = spec.target.GetType() == VrelDR::kTargetLun;
  if (isLun && !args.Has("--size")) {
    throw Failure(ExitCode::kUsage, "a lun needs its size: add --size, such as --size 10G");
  }
  if (!isLun && args.Has("--size")) {
    throw Failure(ExitCode::kUsage,
                  "--size is for a lun: leave it out for a " + args.Text("--type"));
  }
  if (isLun && (!ParseBytes(args.Text("--size"), spec.size_bytes) || spec.size_bytes == 0)) {
    throw Failure(ExitCode::kUsage, "--size " + Quote(args.Text("--size")) +
                                        ": give a number of bytes above 0, with K, M, G or T "
                                        "behind it for larger ones");
  }
  return MakeTarget(spec);
}

}  // namespace

Verb TargetCreate() {
  return {"target create",
          "make an empty target",
          {"A lun is a disk image of the given size that takes no room until it is written, a "
           "share an empty folder, a guest a folder for its definition and disks. The report says "
           "where its bytes are."},
          "Adds a target to this host. A failure leaves nothing of it.",
          {Argument("ID", Value::kNewTarget, "the new target's identifier, unique on this host")},
          {VolumeOfTarget(),
           TypeOfTarget(),
           {"--size", Value::kSize, "SIZE",
            "a lun's size in bytes, or with K, M, G or T behind it in powers of 1024"}},
          RunTargetCreate};
}

}  // namespace drgroupctl

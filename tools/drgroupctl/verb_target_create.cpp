#include "failure.h"
#include "new_target.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

Report TargetCreate(const Arguments& args) {
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

}  // namespace drgroupctl

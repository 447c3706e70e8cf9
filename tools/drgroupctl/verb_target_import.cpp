#include "new_target.h"
#include "verb_functions.h"

namespace drgroupctl {

Report TargetImport(const Arguments& args) {
  VrelDR::TargetSpec spec = NewTargetSpec(args);
  spec.sources = args.List("PATH");
  return MakeTarget(spec);
}

}  // namespace drgroupctl

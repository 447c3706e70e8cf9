#include <filesystem>
#include <system_error>

#include "host/new_target.h"
#include "output/failure.h"
#include "output/text.h"
#include "verbs/parameters.h"
#include "verbs/verbs.h"

namespace drgroupctl {

namespace {

// A name that was mistyped is no trouble of the storage. Others are the host's to tell.
void RequireSource(const std::string& path) {
  std::error_code error;
  if (std::filesystem::status(path, error).type() != std::filesystem::file_type::not_found) return;
  throw Failure(ExitCode::kNotFound,
                "there is no file or folder " + Quote(path) + " to import: correct the path");
}

Report RunTargetImport(const Arguments& args, Warnings& /*warnings*/) {
  VrelDR::TargetSpec spec = NewTargetSpec(args);
  spec.sources = args.List("PATH");
  for (const std::string& each : spec.sources) RequireSource(each);
  return MakeTarget(spec);
}

}  // namespace

Verb TargetImport() {
  return {"target import",
          "make a target from files and folders",
          {"A lun takes one image file, a share any files and folders (of one folder, its "
           "content), a guest its definition and disks. The sources are copied and only read."},
          "Adds a target to this host. A failure leaves nothing of it.",
          {Argument("ID", Value::kNewTarget, "the new target's identifier, unique on this host"),
           {"PATH", Value::kPath, "PATH", "what the target's content is copied from", true, true}},
          {VolumeOfTarget(), TypeOfTarget()},
          RunTargetImport};
}

}  // namespace drgroupctl

#include <filesystem>
#include <system_error>

#include "failure.h"
#include "new_target.h"
#include "text.h"
#include "verb_functions.h"

namespace drgroupctl {

namespace {

// A name that was mistyped is no trouble of the storage. Others are the host's to tell.
void RequireSource(const std::string& path) {
  std::error_code error;
  if (std::filesystem::status(path, error).type() != std::filesystem::file_type::not_found) return;
  throw Failure(ExitCode::kNotFound,
                "there is no file or folder " + Quote(path) + " to import: correct the path");
}

}  // namespace

Report TargetImport(const Arguments& args) {
  VrelDR::TargetSpec spec = NewTargetSpec(args);
  spec.sources = args.List("PATH");
  for (const std::string& each : spec.sources) RequireSource(each);
  return MakeTarget(spec);
}

}  // namespace drgroupctl

#pragma once

#include <json/value.h>

#include <string>
#include <utility>

#include "output/exit_code.h"
#include "output/report.h"

namespace drgroupctl {

// Why a verb could not do its work. Verbs throw it; it ends in one line on stderr, the exit code
// and, with --json, an error document. It never leaves the program's main function.
struct Failure {
  Failure(ExitCode exitCode, std::string text) : code(exitCode), message(std::move(text)) {}

  ExitCode code;
  std::string message;  // one line: what it is about, what is wrong, what to do
  Json::Value details = Json::Value(Json::objectValue);  // further members of the error document
  Report report;  // what people get to see on standard output besides, such as what became of each
  bool is_unconfirmed = false;  // nobody has agreed to the loss: nothing was begun
};

}  // namespace drgroupctl

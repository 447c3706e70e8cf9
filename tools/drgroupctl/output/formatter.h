#pragma once

#include <memory>
#include <string>
#include <vector>

#include "output/failure.h"
#include "output/report.h"

namespace drgroupctl {

// Turns what a verb has to say into what stands on standard output. `warnings` were printed on
// standard error already, which only people read.
class Formatter {
 public:
  Formatter() = default;
  Formatter(const Formatter&) = delete;
  Formatter& operator=(const Formatter&) = delete;
  virtual ~Formatter() = default;

  virtual std::string Format(const Report& report,
                             const std::vector<std::string>& warnings) const = 0;
  // What stands there when the verb failed; the line on standard error is printed besides. Programs
  // get the failure's details, people its report.
  virtual std::string Format(const Failure& failure,
                             const std::vector<std::string>& warnings) const = 0;
};

std::unique_ptr<Formatter> MakeTableFormatter();
std::unique_ptr<Formatter> MakeJsonFormatter();

// A document as it stands on standard output: UTF-8 throughout, with a line feed at its end.
std::string FormatDocument(Json::Value document);

}  // namespace drgroupctl

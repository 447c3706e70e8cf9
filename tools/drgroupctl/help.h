#pragma once

#include <string>
#include <vector>

#include "verb.h"

// Help on the terminal, made from the table of verbs.
namespace drgroupctl {

// What the tool is and the verbs that it has; with `noun`, only those that begin with it.
std::string OverviewHelp(const std::string& noun = std::string());

std::string VerbHelp(const Verb& verb);

// What is said of a parameter, with its choices.
std::string ParameterText(const Parameter& parameter);

}  // namespace drgroupctl

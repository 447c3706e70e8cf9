#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "command/verb.h"

// Help on the terminal, and for programs, made from the table of verbs.
namespace drgroupctl {

// What the tool is and the verbs that it has; with `noun`, only those that begin with it.
std::string OverviewHelp(const std::string& noun = std::string());

std::string VerbHelp(const Verb& verb);

// The same as documents.
Json::Value OverviewDocument(const std::string& noun = std::string());
Json::Value VerbDocument(const Verb& verb);

// What is said of a parameter, with its choices.
std::string ParameterText(const Parameter& parameter);

}  // namespace drgroupctl

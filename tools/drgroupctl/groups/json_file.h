#pragma once

#include <json/value.h>

#include <string>

namespace drgroupctl {

// The JSON object that `text` is. False, with where and why in `problem`, when it is none.
bool ParseJsonObject(const std::string& text, Json::Value& object, std::string& problem);

}  // namespace drgroupctl

#pragma once

#include <string>

namespace VrelHost {

// `text` in double quotes, for messages. Control characters are shown as \xHH, so that a message
// stays on one line whatever the text is.
std::string Quoted(const std::string& text);

}  // namespace VrelHost

#pragma once

#include <functional>
#include <string>

namespace host_test {

// Runs `body`, which says whether it went well, in `count` processes at once, while another holds
// the right to write the SQLite file at `path`. That one runs the statements `last` before it lets
// go, when the others stand in line. Expects all of them to end well. The caller has no connection
// to the file.
void RunBehindAWriter(const std::string& path, const std::string& last, int count,
                      const std::function<bool()>& body);

}  // namespace host_test

#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace bench {

// What the programs' main functions do: takes the options of Google Benchmark and --dir=DIR, and
// runs `body` with the directory, that of the program unless one is given. The exit status; what
// `body` throws is printed.
int RunMain(int argc, char** argv, void (*printUsage)(),
            const std::function<int(const std::filesystem::path& dir)>& body);

// Runs what was registered and prints the table of ratios. The exit status: 0 unless a benchmark
// could not run. A missed target is for the reader to judge and no error.
int RunRegistered();

// Prints why the program cannot go on. Returns the exit status.
int Fail(const std::string& message);

// Gives the process a private /var with the database script in it; throws std::runtime_error.
void EnterPrivateHost();

}  // namespace bench

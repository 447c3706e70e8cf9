#pragma once

#include <string>
#include <vector>

// Standard output, standard error and the terminal.
namespace drgroupctl {

// One line on standard error: "drgroupctl: " and the text.
void PrintError(const std::string& text);
// The same for what is no failure.
void PrintNote(const std::string& text);

// The warnings of one run of the tool. Each is a line on standard error at once, and kept: programs
// get them with the document.
class Warnings {
 public:
  void Print(const std::string& text);
  // Those that were printed, in their order.
  const std::vector<std::string>& Printed() const { return printed_; }

 private:
  std::vector<std::string> printed_;
};

// Text for the terminal behind standard error, as it is: for what is drawn and cleared again.
void PrintOnTerminal(const std::string& text);

// Writes all of `text` to standard output; throws when that fails.
void PrintOut(const std::string& text);

// While it lives, what this process and the programs it starts write to standard error is kept
// instead of shown: the database script tells its troubles there, and the tool tells them once.
class StderrCapture {
 public:
  StderrCapture();
  StderrCapture(const StderrCapture&) = delete;
  StderrCapture& operator=(const StderrCapture&) = delete;
  ~StderrCapture();

  // The first line that was written, empty when there was none.
  std::string FirstLine() const;

 private:
  int kept_ = -1;   // the real standard error
  int store_ = -1;  // the memory file in its place
};

}  // namespace drgroupctl

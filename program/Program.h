#pragma once

#include <string>

// What every program of this project does alike: its version, and its end.
namespace ZceProgram {

constexpr int EXIT_FINE = 0;
constexpr int EXIT_NOT_DONE = 2;  // a usage error, and whatever could not be done

// "NAME 3.10.0", as --version prints it.
std::string VersionText(const std::string& name);

// For the end of a program: `status`, or EXIT_NOT_DONE with a line "NAME: standard output: REASON"
// on standard error if not all of the output could be written (a full disk, a closed pipe; the
// program must ignore SIGPIPE for the latter: IgnoreBrokenPipes).
int FinishOutput(const std::string& name, int status);

// The same for a program whose output is one text, which is written here: the line has the reason
// however long the text is.
int WriteOutput(const std::string& name, const std::string& text, int status);

// A pipe that nobody reads is an error of the write, no signal.
void IgnoreBrokenPipes();

// What a program's main() does: `body` with its arguments, a broken pipe being no signal. What
// `body` throws (out of memory) is told on standard error as "NAME: REASON", the status being
// EXIT_NOT_DONE.
int RunMain(const char* name, int (*body)(int argc, const char* const* argv), int argc,
            const char* const* argv);

}  // namespace ZceProgram

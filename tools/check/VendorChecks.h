#pragma once

#include <span>
#include <string>
#include <vector>

#include "check/Machine.h"

namespace ZceMachine {

// The vendor's calls that the product is linked against, in alphabetical order, and that it uses if
// they are there.
std::span<const char* const> NeededCalls();
std::span<const char* const> WelcomeCalls();

// Whether a library can take the vendor's part: machine, soname, calls.
std::vector<Result> CheckVendorLibrary(const std::string& path);

// What the loader takes for `subject`, the product's library or a program that uses it. library:
// the one that it should be; empty if none was named.
Result CheckLoader(const std::string& subject, const std::string& library);

// The product's library beside this program, in the build's folders or the installed ones; empty if
// it is not there.
std::string ProductLibrary();

}  // namespace ZceMachine

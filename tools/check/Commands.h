#pragma once

// The commands of zce-check, each with a command line of its own. All take the program's whole
// argument list, write their answer to standard output and the reason of a failure to standard
// error, and return the exit status: 0 fine, 1 warnings, 2 errors and whatever could not be done.
namespace ZceCheck {

// zce-check CONFIG: what a configuration file will do.
int ConfigMain(int argc, const char* const* argv);

// zce-check --when: what a start of the master does at a moment of the day. 3 if it is too late.
int WhenMain(int argc, const char* const* argv);

// zce-check host: whether this machine is fit. argv begins with "host", the
// program's name is left out.
int HostMain(int argc, const char* const* argv);

// zce-check vendor [LIBRARY]: whether a vendor's library has what the product needs, and which one
// the loader takes. argv as above.
int VendorMain(int argc, const char* const* argv);

}  // namespace ZceCheck

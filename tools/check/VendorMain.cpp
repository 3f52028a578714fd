#include <cstdio>
#include <optional>
#include <string>

#include "check/Commands.h"
#include "check/VendorChecks.h"
#include "program/CommandLine.h"
#include "program/Program.h"

namespace ZceCheck {

int VendorMain(int argc, const char* const* argv) {
    const ZceProgram::CCommandLine app{
        "zce-check vendor",
        "Tells whether a vendor's library has what the product needs, and which one the "
        "loader takes. Exit status 1 if there are warnings, 2 if there are errors."};
    std::optional<std::string> library;
    std::optional<std::string> subject;
    bool bJson = false;
    app.Option("LIBRARY", library,
               "A libenyx-hw-c.so.5, read and not run; without it only the loader is asked");
    app.Option("--for", subject,
               "The product's library, or a program that uses it, for which the loader is "
               "asked; without it the library that belongs to this program");
    app.Flag("--json", bJson, "The answer as JSON");
    if (const auto status = app.Read(argc, argv)) {
        return *status;
    }
    std::vector<ZceMachine::Result> results;
    if (library) {
        results = ZceMachine::CheckVendorLibrary(*library);
    }
    if (!subject) {
        subject = ZceMachine::ProductLibrary();
    }
    if (subject->empty()) {
        results.push_back({ZceMachine::Level::Error, "loader",
                           "the product's library is not beside this program",
                           "name it, or a program that uses it, with --for"});
    } else {
        results.push_back(ZceMachine::CheckLoader(*subject, library.value_or("")));
    }
    const std::string text = bJson ? ZceMachine::AsJson(results) : ZceMachine::AsText(results);
    fputs(text.c_str(), stdout);
    return ZceMachine::ExitStatus(results);
}

}  // namespace ZceCheck

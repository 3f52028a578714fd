#pragma once

#include <string>

namespace ZceCaptureTool {

// What gnuplot writes to its standard output for this script. False with the reason, which says
// what to install if there is no gnuplot.
bool DrawWithGnuplot(const std::string& script, std::string& drawn, std::string& error);

}  // namespace ZceCaptureTool

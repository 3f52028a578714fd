#pragma once

#include <string>

#include "check/Check.h"

namespace ZceCheck {

// What was found, for a person: the findings, a table of the channels that have rules, the feeds,
// and one last line.
std::string TextReport(const CheckResult& result);

// The same for a program: one JSON object, as docs/check.md describes it, and a line end.
std::string JsonReport(const CheckResult& result);

// "no finding", "1 error", "2 errors, 1 warning".
std::string Summary(const CheckResult& result);

// The rules of a channel in a few words: "SR, CF, TA with options; SPD". "nothing" if there is
// none.
std::string RulesInWords(const Vela2_U50::ZceSubsInfo_t& rules);

}  // namespace ZceCheck

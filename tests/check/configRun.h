#pragma once

#include <string>

#include "check/Check.h"
#include "tempDir.h"

namespace velatest {

// A configuration file "c.ini" of its own in a directory of its own, which is the working one, and
// what zce-check says of it.
class ConfigRun {
  public:
    // list: names for the rules, one a line; empty: no list. They are then those of "list".
    explicit ConfigRun(const std::string& ini, const std::string& list = "");

    // The findings as the text report prints them, up to the first empty line.
    std::string Findings() const;
    // All of the text report.
    std::string Text() const;
    const ZceCheck::CheckResult& Result() const { return m_result; }

  private:
    TempDir m_dir;
    ZceCheck::CheckResult m_result;
};

// The findings of a file of which nothing but `more` is said: a [config] with a good device on its
// first two lines stands before it.
std::string FindingsBelowDevice(const std::string& more, const std::string& list = "");

}  // namespace velatest

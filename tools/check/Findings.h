#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ZceCheck {

// error: something in the configuration will not do what it says, or the start fails. warning: it
// is suspicious.
enum class Severity { warning, error };

// What can be found. Names and severities are in Findings.cpp, in this order; docs/check.md
// explains them.
enum class Code {
    BadLine,
    LineTooLong,
    UnfinishedLine,
    CommentContinues,
    SectionNotBegun,
    ByteOrderMark,
    ZeroByte,
    ValueCut,
    QuoteNotClosed,
    DuplicateKey,
    DuplicateSection,
    UnknownSection,
    MisspeltSection,
    UnknownKey,
    MisspeltKey,
    MisplacedKey,
    DeviceMissing,
    BadDevice,
    DeviceCapitals,
    DeviceTextBehind,
    CpuAbsent,
    BadNumber,
    OctalNumber,
    NotDisabled,
    OddFeedSwitch,
    FeedsOff,
    BadMac,
    BadIp,
    BadPort,
    FeedIncomplete,
    FeedWithoutAddresses,
    OptionsMissing,
    ChannelNotRead,
    OptionsWithoutInsts,
    NotRecv,
    OddSwitch,
    InstsEmpty,
    FullWidth,
    ClassNotLetters,
    OptionId,
    CombinationId,
    LowerCase,
    BlankInItem,
    AllInWord,
    DuplicateItem,
    ChannelSelectsNothing,
    IdNotInList,
    ClassNotInList,
    NoneOfKind,
    ChannelGetsNothing,
    ListIncomplete,
};

struct CodeInfo {
    const char* name;  // stable: what docs, --json and scripts know it by
    Severity severity;
};

// All codes, indexed by Code.
std::span<const CodeInfo> AllCodes();
const CodeInfo& InfoOf(Code code);
const char* Word(Severity severity);

// Where in the file a finding is.
struct Place {
    unsigned line = 0;  // 0: the file as a whole
    std::string section;
    std::string key;  // as it stands in the file
    std::string value;
};

struct Finding {
    Code code;
    Place place;
    std::string message;  // what happens
    std::string hint;     // what to do
};

class CFindings {
  public:
    void Add(Code code, Place place, std::string message, std::string hint);
    bool Has(Code code) const;
    // Whether something, or an error, was found in a section.
    bool HasAnyIn(std::string_view section) const;
    bool HasErrorIn(std::string_view section) const;
    // By line; those of a line in the order of adding.
    void Sort();
    std::size_t Count(Severity severity) const;
    const std::vector<Finding>& All() const { return m_all; }

  private:
    std::vector<Finding> m_all;
};

// `text` for a message: what cannot be printed as \xNN, and cut if it is very long.
std::string Shown(std::string_view text);

}  // namespace ZceCheck

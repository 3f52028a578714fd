#include "check/Findings.h"

#include <algorithm>
#include <array>
#include <utility>

#include "program/Printable.h"

namespace ZceCheck {

namespace {

constexpr std::size_t SHOWN_MAX = 120;

constexpr auto WARNING = Severity::warning;
constexpr auto ERROR = Severity::error;
constexpr auto CODES = std::to_array<CodeInfo>({
    {"bad-line", ERROR},
    {"line-too-long", ERROR},
    {"unfinished-line", ERROR},
    {"comment-continues", WARNING},
    {"section-not-begun", ERROR},
    {"byte-order-mark", WARNING},
    {"zero-byte", WARNING},
    {"value-cut", WARNING},
    {"quote-not-closed", WARNING},
    {"duplicate-key", WARNING},
    {"duplicate-section", WARNING},
    {"unknown-section", WARNING},
    {"misspelt-section", ERROR},
    {"unknown-key", WARNING},
    {"misspelt-key", ERROR},
    {"misplaced-key", ERROR},
    {"device-missing", ERROR},
    {"bad-device", ERROR},
    {"device-capitals", WARNING},
    {"device-text-behind", WARNING},
    {"cpu-absent", ERROR},
    {"bad-number", ERROR},
    {"octal-number", WARNING},
    {"not-disabled", ERROR},
    {"odd-feed-switch", WARNING},
    {"feeds-off", WARNING},
    {"bad-mac", ERROR},
    {"bad-ip", ERROR},
    {"bad-port", ERROR},
    {"feed-incomplete", ERROR},
    {"feed-without-addresses", WARNING},
    {"options-missing", ERROR},
    {"channel-not-read", ERROR},
    {"options-without-insts", ERROR},
    {"not-recv", ERROR},
    {"odd-switch", WARNING},
    {"insts-empty", WARNING},
    {"full-width", ERROR},
    {"class-not-letters", ERROR},
    {"option-id", ERROR},
    {"combination-id", ERROR},
    {"lower-case", WARNING},
    {"blank-in-item", WARNING},
    {"all-in-word", WARNING},
    {"duplicate-item", WARNING},
    {"channel-selects-nothing", WARNING},
    {"id-not-in-list", ERROR},
    {"class-not-in-list", ERROR},
    {"none-of-kind", WARNING},
    {"channel-gets-nothing", WARNING},
    {"list-incomplete", WARNING},
});
static_assert(CODES.size() == static_cast<std::size_t>(Code::ListIncomplete) + 1);

bool IsError(const Finding& finding) {
    return InfoOf(finding.code).severity == Severity::error;
}

}  // namespace

std::span<const CodeInfo> AllCodes() {
    return CODES;
}

const CodeInfo& InfoOf(Code code) {
    return CODES[static_cast<std::size_t>(code)];
}

const char* Word(Severity severity) {
    return severity == Severity::error ? "error" : "warning";
}

void CFindings::Add(Code code, Place place, std::string message, std::string hint) {
    m_all.push_back({code, std::move(place), std::move(message), std::move(hint)});
}

bool CFindings::Has(Code code) const {
    return std::any_of(m_all.begin(), m_all.end(),
                       [&](const Finding& finding) { return finding.code == code; });
}

bool CFindings::HasAnyIn(std::string_view section) const {
    return std::any_of(m_all.begin(), m_all.end(),
                       [&](const Finding& finding) { return finding.place.section == section; });
}

bool CFindings::HasErrorIn(std::string_view section) const {
    return std::any_of(m_all.begin(), m_all.end(), [&](const Finding& finding) {
        return finding.place.section == section && IsError(finding);
    });
}

void CFindings::Sort() {
    std::stable_sort(m_all.begin(), m_all.end(), [](const Finding& left, const Finding& right) {
        return left.place.line < right.place.line;
    });
}

std::size_t CFindings::Count(Severity severity) const {
    return static_cast<std::size_t>(std::count_if(
        m_all.begin(), m_all.end(),
        [&](const Finding& finding) { return InfoOf(finding.code).severity == severity; }));
}

std::string Shown(std::string_view text) {
    if (text.size() <= SHOWN_MAX) {
        return ZceProgram::Printable(text);
    }
    std::size_t length = SHOWN_MAX;
    while (length != 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80) {
        --length;  // not inside a letter
    }
    return ZceProgram::Printable(text.substr(0, length)) + "...";
}

}  // namespace ZceCheck

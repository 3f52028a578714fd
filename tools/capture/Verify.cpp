#include "capturetool/Verify.h"

#include <fmt/format.h>

#include <filesystem>
#include <optional>

#include "capture/SidecarReader.h"
#include "capturetool/Rotation.h"
#include "capturetool/Scan.h"
#include "capturetool/Status.h"
#include "program/Printable.h"
#include "program/Program.h"

namespace ZceCaptureTool {

namespace {

using ZceCapture::Sidecar;
using ZceCapture::SidecarCheck;
using Verdict = SidecarCheck::Verdict;

// What the sidecar tells of the contents and the contents do not hold; empty: they are the same.
std::string Difference(const Sidecar& sidecar, const CScan& scan) {
    if (sidecar.messages != scan.All().messages || sidecar.lost != scan.LostTold()) {
        return fmt::format("{} messages and {} lost", sidecar.messages, sidecar.lost);
    }
    if (sidecar.messages != 0 &&
        (sidecar.firstTimeNs != scan.FirstNs() || sidecar.lastTimeNs != scan.LastNs())) {
        return fmt::format("messages from {} to {} ns", sidecar.firstTimeNs, sidecar.lastTimeNs);
    }
    for (const Sidecar::Stream& told : sidecar.streams) {
        const auto found = scan.Streams().find({told.bus, told.channel, told.opening});
        const StreamScan stream = found == scan.Streams().end() ? StreamScan() : found->second;
        if (told.messages != stream.all.messages || told.first != stream.firstNumber ||
            told.last != stream.lastNumber) {
            return fmt::format("{} messages, {} to {}, for channel {} opening {}", told.messages,
                               told.first, told.last, told.channel, told.opening);
        }
    }
    return "";
}

// The verdict in one word or two, and what to do.
struct Words {
    const char* word;
    const char* advice;
};

Words WordsOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::Good:
            return {"complete", ""};
        case Verdict::Absent:
            return {"NOT VERIFIED",
                    "whether it is whole cannot be told: keep the .json file with it"};
        case Verdict::Unreadable:
            return {"NOT READABLE", "see that it and its .json file are the recorder's"};
        case Verdict::BeingWritten:
            return {"UNFINISHED", "verify it when the recorder has ended it"};
        case Verdict::Interrupted:
            return {"UNFINISHED", "its recorder was killed; what can be read is sound"};
        case Verdict::Cut:
            return {"CUT", "copy it again; what can be read is sound"};
        case Verdict::Changed:
            return {"CHANGED", "copy it again"};
    }
    return {"", ""};
}

// One line about one file.
class CFile {
  public:
    explicit CFile(const std::string& path) : m_scan(1), m_check(ZceCapture::CheckSidecar(path)) {
        m_bRead = m_scan.Read(path);
        // What CheckSidecar says of a file that the recorder left as it is says nothing of the
        // packets in it.
        if (m_check.verdict == Verdict::Good && m_bRead) {
            m_difference = Difference(m_check.sidecar, m_scan);
        }
    }

    const SidecarCheck& Check() const { return m_check; }
    bool Well() const {
        return m_check.verdict == Verdict::Good && m_bRead && m_scan.End() == Ending::Whole &&
               m_difference.empty();
    }

    std::string Line() const {
        const std::string path = m_scan.Path();
        if (Well()) {
            return fmt::format("{}: complete: {} messages, {} lost by the recorder, {}", path,
                               m_scan.All().messages, m_scan.LostTold(), Behind(m_check.text));
        }
        const bool bKnown =
            m_check.verdict != Verdict::Absent && m_check.verdict != Verdict::Unreadable;
        if (!m_bRead && (!bKnown || m_check.verdict == Verdict::Good)) {
            return fmt::format("{}: NOT READABLE: {}", path, Behind(m_scan.Error()));
        }
        if (m_check.verdict != Verdict::Good) {
            const Words words = WordsOf(m_check.verdict);
            return fmt::format("{}: {}: {}; {}; {}", path, words.word, Behind(m_check.text),
                               ReadText(), words.advice);
        }
        return m_difference.empty()
                   ? fmt::format("{}: DAMAGED: {}; its recorder wrote it like this", path,
                                 ReadText())
                   : fmt::format(
                         "{}: CHANGED: {}; its sidecar tells {}: see that the sidecar is "
                         "this file's",
                         path, ReadText(), m_difference);
    }

  private:
    // "16 of 20 messages can be read, 4 are missing", and up to where.
    std::string ReadText() const {
        const uint64_t told = m_check.sidecar.messages;
        const uint64_t found = m_scan.All().messages;
        std::string text = told > found && m_difference.empty()
                               ? fmt::format("{} of {} messages can be read, {} are missing", found,
                                             told, told - found)
                               : fmt::format("{} messages can be read", found);
        if (!m_bRead) {
            text += ": " + Behind(m_scan.Error());
        } else if (m_scan.End() != Ending::Whole) {
            text += ", up to " + Behind(m_scan.Error());
        }
        return text;
    }
    // Without the file's name in front.
    std::string Behind(const std::string& text) const {
        const std::string name = m_scan.Path() + ": ";
        return text.starts_with(name) ? text.substr(name.size()) : text;
    }

    CScan m_scan;
    SidecarCheck m_check;
    bool m_bRead = false;
    std::string m_difference;
};

}  // namespace

Verification VerifyCaptures(const std::vector<std::string>& files) {
    Verification result;
    CRotations rotations;
    for (const std::string& path : files) {
        const CFile file(path);
        result.well = result.well && file.Well();
        result.lines.push_back(file.Line());
        if (!file.Check().sidecar.file.empty()) {
            rotations.Add(path, file.Check().sidecar);
        }
    }
    for (std::string& line : rotations.Faults()) {
        result.well = false;
        result.lines.push_back(std::move(line));
    }
    return result;
}

int RunVerify(const std::vector<std::string>& files) {
    const Verification result = VerifyCaptures(files);
    std::string text;
    for (const std::string& line : result.lines) {
        text += ZceProgram::Printable(line) + "\n";
    }
    return ZceProgram::WriteOutput("zce-capture", text,
                                   result.well ? ZceProgram::EXIT_FINE : EXIT_NOT_WELL);
}

}  // namespace ZceCaptureTool

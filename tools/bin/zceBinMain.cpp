#include <fmt/format.h>

#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Utils/calendar.h"
#include "bin/BinLook.h"
#include "program/CommandLine.h"
#include "program/Moment.h"
#include "program/Program.h"

// zce-bin: an instrument cache file, and whether a start would believe it. Exit status: 0 it would,
// 1 it would not, 2 the file cannot be read, or a usage error, with the reason on standard error.

namespace {

using nlohmann::ordered_json;
using ZceBin::BinLook;
using ZceBin::Printable;
using ZceProgram::Moment;

constexpr int EXIT_NOT_BELIEVED = 1;

struct Question {
    std::string file;
    VORBA2::LocalMoment_t at;
};

const char* Name(const std::string& file) {
    return file == "-" ? "standard input" : file.c_str();
}

std::string Text(const BinLook& look, const Question& question) {
    std::string text;
    const auto out = std::back_inserter(text);
    const std::string reason = ZceBin::ReasonOf(look, question.at);
    fmt::format_to(out, "file:        {}\n", Name(question.file));
    fmt::format_to(out, "time:        {}\n",
                   look.time ? ZceBin::CreationTimeText(*look.time) : "none");
    fmt::format_to(out, "complete:    {}\n", look.bComplete ? "yes" : "no");
    fmt::format_to(out, "instruments: {}\n", look.insts.size());
    fmt::format_to(out, "believed:    {}\n", reason.empty() ? "yes" : "no, " + reason);
    for (const ZceBin::SkippedLine& line : look.skipped) {
        fmt::format_to(out, "skipped:     line {}: {}\n", line.number, Printable(line.text));
    }
    for (const auto& [name, index] : look.insts) {
        fmt::format_to(out, "{},{}\n", index, Printable(name));
    }
    return text;
}

std::string Json(const BinLook& look, const Question& question) {
    const std::string reason = ZceBin::ReasonOf(look, question.at);
    ordered_json json = {
        {"file", question.file},
        {"at", ZceProgram::MomentText(Moment{question.at.date, question.at.time})},
        {"time", look.time ? ordered_json(ZceBin::CreationTimeText(*look.time)) : ordered_json()},
        {"complete", look.bComplete},
        {"believed", reason.empty()},
        {"reason", reason},
        {"instruments", ordered_json::array()},
        {"skipped", ordered_json::array()}};
    for (const auto& [name, index] : look.insts) {
        json["instruments"].push_back({{"index", index}, {"name", name}});
    }
    for (const ZceBin::SkippedLine& line : look.skipped) {
        json["skipped"].push_back({{"line", line.number}, {"text", line.text}});
    }
    return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

int Main(int argc, const char* const* argv) {
    const ZceProgram::CCommandLine app{
        "zce-bin",
        "Shows an instrument cache file, and tells whether a start of the master would "
        "believe it. Exit status 1 if it would not."};
    Question question;
    std::optional<std::string> at;
    bool bJson = false;
    app.Option("FILE", question.file, "The cache file; - for standard input").Required();
    app.Option("--at", at,
               "The moment at which the start reads it: HH:MM, HH:MM:SS, or a date before it, "
               "YYYY-MM-DDTHH:MM:SS; without it the host's clock says");
    app.Flag("--json", bJson, "The answer as JSON");
    if (const auto status = app.Read(argc, argv)) {
        return *status;
    }
    const std::optional<Moment> moment =
        ZceProgram::MomentToAsk("zce-bin", at, ZceProgram::AsMoment(VORBA2::LocalNow()));
    if (!moment) {
        return ZceProgram::EXIT_NOT_DONE;
    }
    question.at = {moment->date, moment->time};
    std::string reason;
    const std::optional<std::string> bytes = ZceBin::ReadBin(question.file, reason);
    if (!bytes) {
        fprintf(stderr, "zce-bin: %s: %s\n", Name(question.file), reason.c_str());
        return ZceProgram::EXIT_NOT_DONE;
    }
    const BinLook look = ZceBin::LookAtBin(*bytes, question.at);
    return ZceProgram::WriteOutput(
        "zce-bin", bJson ? Json(look, question) : Text(look, question),
        look.verdict == ZceBin::Verdict::Believed ? ZceProgram::EXIT_FINE : EXIT_NOT_BELIEVED);
}

}  // namespace

int main(int argc, char** argv) {
    return ZceProgram::RunMain("zce-bin", Main, argc, argv);
}

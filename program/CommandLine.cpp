#include "program/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <utility>

#include "program/Program.h"

namespace ZceProgram {

COption COption::Required() const {
    return COption(m_option->required());
}

COption COption::Needs(COption other) const {
    return COption(m_option->needs(other.m_option));
}

COption COption::Excludes(COption other) const {
    return COption(m_option->excludes(other.m_option));
}

template <typename T>
COption COption::Range(T least, T most) const {
    return COption(m_option->check(CLI::Range(least, most)));
}

template COption COption::Range(int, int) const;
template COption COption::Range(uint32_t, uint32_t) const;
template COption COption::Range(uint64_t, uint64_t) const;
template COption COption::Range(double, double) const;

COption COption::OneOf(const std::vector<std::string>& values) const {
    return COption(m_option->check(CLI::IsMember(values)));
}

COption COption::Commas() const {
    return COption(m_option->delimiter(',')->allow_extra_args(false));
}

COption COption::ValueOptional() const {
    return COption(m_option->expected(0, 1));
}

COption COption::ValueName(const char* name) const {
    return COption(m_option->type_name(name));
}

COption COption::Environment(const char* variable) const {
    return COption(m_option->envname(variable));
}

COption COption::ShowDefault() const {
    return COption(m_option->capture_default_str());
}

bool COption::IsGiven() const {
    return m_option->count() != 0;
}

template <typename T>
COption CArguments::Option(const char* name, T& value, const char* help) const {
    return COption(m_app->add_option(name, value, help));
}

template COption CArguments::Option(const char*, std::string&, const char*) const;
template COption CArguments::Option(const char*, uint32_t&, const char*) const;
template COption CArguments::Option(const char*, uint64_t&, const char*) const;
template COption CArguments::Option(const char*, double&, const char*) const;
template COption CArguments::Option(const char*, std::optional<std::string>&, const char*) const;
template COption CArguments::Option(const char*, std::optional<uint16_t>&, const char*) const;
template COption CArguments::Option(const char*, std::optional<uint32_t>&, const char*) const;
template COption CArguments::Option(const char*, std::vector<std::string>&, const char*) const;
template COption CArguments::Option(const char*, std::vector<uint32_t>&, const char*) const;

COption CArguments::Text(const char* name, const std::function<void(const std::string& text)>& take,
                         const char* help) const {
    return COption(m_app->add_option_function<std::string>(name, take, help));
}

COption CArguments::Flag(const char* name, bool& value, const char* help) const {
    return COption(m_app->add_flag(name, value, help));
}

COption CArguments::Find(const char* name) const {
    return COption(m_app->get_option(name));
}

CArguments CArguments::Group(const char* name, const char* help) const {
    return CArguments(m_app->add_option_group(name, help));
}

void CArguments::RequireOneOption() const {
    m_app->require_option(1);
}

void CArguments::RequireAtMostOneOption() const {
    m_app->require_option(0, 1);
}

CArguments CArguments::Subcommand(const char* name, const char* help) const {
    return CArguments(m_app->add_subcommand(name, help));
}

void CArguments::RequireSubcommand() const {
    m_app->require_subcommand(1);
}

void CArguments::OptionsAnywhere() const {
    m_app->fallthrough();  // which subcommands take over from their parent
}

bool CArguments::IsChosen() const {
    return m_app->parsed();
}

void CArguments::Footer(const char* text) const {
    m_app->footer(text);
}

void CArguments::Version(const std::string& text) const {
    m_app->set_version_flag("--version", text, "Print the version, and end");
}

namespace {

UsageError::Kind KindOf(const CLI::ParseError& error) {
    switch (static_cast<CLI::ExitCodes>(error.get_exit_code())) {
        case CLI::ExitCodes::RequiredError:
            return UsageError::Kind::Missing;
        case CLI::ExitCodes::ExtrasError:
            return UsageError::Kind::Unexpected;
        default:
            return UsageError::Kind::Other;
    }
}

UsageError AsUsageError(const CLI::App& app, const CLI::ParseError& error) {
    UsageError usage(error.what());
    usage.kind = KindOf(error);
    usage.unexpected = app.remaining(true);
    const CLI::App* last = &app;
    while (!last->get_subcommands().empty()) {
        last = last->get_subcommands().front();
        usage.chosen.push_back(last->get_name());
    }
    for (const CLI::App* sub : last->get_subcommands([](const CLI::App*) { return true; })) {
        usage.commands.push_back(sub->get_name());
    }
    return usage;
}

// A misspelt option leaves the one that was meant missing: what is missing is asked for first, and
// the misspelt one is what helps. CLI11 tells the arguments from the last to the first.
std::string ReasonOf(const UsageError& error) {
    if (error.unexpected.empty() || error.kind == UsageError::Kind::Other) {
        return error.what();
    }
    return CLI::ExtrasError({error.unexpected.rbegin(), error.unexpected.rend()}).what();
}

}  // namespace

CCommandLine::CCommandLine(const char* name, const char* about)
    : CCommandLine(std::make_unique<CLI::App>(about, name)) {}

CCommandLine::CCommandLine(std::unique_ptr<CLI::App> app)
    : CArguments(app.get()), m_owned(std::move(app)) {}

CCommandLine::~CCommandLine() = default;

std::optional<std::string> CCommandLine::Parse(int argc, const char* const* argv) const {
    if (m_app->get_version_ptr() == nullptr) {
        Version(VersionText(m_app->get_name()));
    }
    try {
        m_app->parse(argc, argv);
    } catch (const CLI::Success& asked) {
        std::ostringstream output;
        m_app->exit(asked, output, output);
        return output.str();
    } catch (const CLI::ParseError& error) {
        throw AsUsageError(*m_app, error);
    }
    return std::nullopt;
}

std::optional<int> CCommandLine::Read(int argc, const char* const* argv) const {
    const std::string name = m_app->get_name();
    try {
        const std::optional<std::string> answer = Parse(argc, argv);
        return answer ? std::optional(WriteOutput(name, *answer, EXIT_FINE)) : std::nullopt;
    } catch (const UsageError& error) {
        fprintf(stderr, "%s: %s\n", name.c_str(), ReasonOf(error).c_str());
        return EXIT_NOT_DONE;
    }
}

}  // namespace ZceProgram

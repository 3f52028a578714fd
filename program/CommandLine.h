#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

// The command line of a program, which CLI11 reads. Its header takes the compiler seconds: it is
// included in CommandLine.cpp alone. A description that is wrong, such as a name that is there
// twice, throws.
namespace ZceProgram {

// Why a command line is not taken: what() is the reason, in one line without the program's name.
struct UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
    enum class Kind { Missing, Unexpected, Other };
    Kind kind = Kind::Other;
    // Of what was read: arguments that nothing takes, the subcommands that were chosen, one within
    // the other, and those that the last of them has.
    std::vector<std::string> unexpected;
    std::vector<std::string> chosen;
    std::vector<std::string> commands;
};

// An option or a flag of a command line, or a text at a place of its own. A handle: it can be
// copied, and lives no longer than the command line. What describes the option returns it again.
class COption {
  public:
    explicit COption(CLI::Option* option) : m_option(option) {}

    COption Required() const;
    COption Needs(COption other) const;
    COption Excludes(COption other) const;
    // For int, uint32_t, uint64_t and double; both ends are allowed.
    template <typename T>
    COption Range(T least, T most) const;
    COption OneOf(const std::vector<std::string>& values) const;
    // Several values stand in one argument, with commas between.
    COption Commas() const;
    COption ValueOptional() const;
    COption ValueName(const char* name) const;
    COption Environment(const char* variable) const;  // which has the value otherwise
    // --help tells the value that the variable has now.
    COption ShowDefault() const;

    bool IsGiven() const;

  private:
    CLI::Option* m_option;
};

// What a command line, a subcommand or a group of options takes; a handle as well. The texts are
// those of --help. Names are as "--name"; without dashes it is an argument at its place. The
// variables get what the command line says, and must live until it is read.
class CArguments {
  public:
    // For string, uint32_t, uint64_t and double; optional of string, uint16_t and uint32_t; vector
    // of string and uint32_t.
    template <typename T>
    COption Option(const char* name, T& value, const char* help) const;
    // `take` gets the text, and throws UsageError if it is wrong.
    COption Text(const char* name, const std::function<void(const std::string& text)>& take,
                 const char* help) const;
    COption Flag(const char* name, bool& value, const char* help) const;
    // One that is described already, in a group too.
    COption Find(const char* name) const;

    CArguments Group(const char* name, const char* help) const;
    void RequireOneOption() const;
    void RequireAtMostOneOption() const;

    CArguments Subcommand(const char* name, const char* help) const;
    void RequireSubcommand() const;
    // Options of the command line may stand behind a subcommand that is added later.
    void OptionsAnywhere() const;
    bool IsChosen() const;

    void Footer(const char* text) const;
    void Version(const std::string& text) const;

  protected:
    explicit CArguments(CLI::App* app) : m_app(app) {}

    CLI::App* m_app;
};

class CCommandLine : public CArguments {
  public:
    CCommandLine(const char* name, const char* about);
    ~CCommandLine();
    CCommandLine(const CCommandLine&) = delete;
    CCommandLine& operator=(const CCommandLine&) = delete;

    // Reads the arguments; --version is added if there is none. What --help or --version asks for;
    // nothing if the program is to go on. Throws UsageError.
    std::optional<std::string> Parse(int argc, const char* const* argv) const;

    // The same for a program that does nothing else yet. Nothing if it is to go on; else its exit
    // status: --help and --version were answered on standard output, or a usage error is told on
    // standard error in one line, "NAME: REASON", which says which argument is wrong.
    std::optional<int> Read(int argc, const char* const* argv) const;

  private:
    explicit CCommandLine(std::unique_ptr<CLI::App> app);

    std::unique_ptr<CLI::App> m_owned;
};

}  // namespace ZceProgram

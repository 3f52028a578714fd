#include "check/VendorLoader.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>
#include <string_view>
#include <vector>

namespace ZceMachine {

namespace {

constexpr const char* LOADER = "/lib64/ld-linux-x86-64.so.2";  // of every program for this machine

constexpr std::string_view FIND = "find library=";
constexpr std::string_view SEARCH_PATH = " search path=";
constexpr std::string_view SEARCH_CACHE = " search cache=";
constexpr std::string_view TRYING = "  trying file=";

// What stands behind `word` in the line; nothing if the word is not in it.
std::optional<std::string> Behind(const std::string& line, std::string_view word) {
    const std::size_t at = line.find(word);
    return at == std::string::npos ? std::nullopt
                                   : std::optional<std::string>(line.substr(at + word.size()));
}

// "directories\t\t(RUNPATH from file x)" as "RUNPATH of x".
std::string RuleOfPath(const std::string& path) {
    const std::size_t open = path.find("\t(");
    const std::size_t close = path.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open + 2) {
        return "a search path";
    }
    std::string rule = path.substr(open + 2, close - open - 2);
    constexpr std::string_view from = " from file ";
    if (const std::size_t at = rule.find(from); at != std::string::npos) {
        rule.replace(at, from.size(), " of ");
    }
    return rule;
}

// The rule under which the loader tried the file that it took: followed line by line.
class CSearch {
  public:
    void Take(const std::string& line) {
        if (const auto found = Behind(line, FIND)) {
            m_bOurs = found->starts_with(VENDOR_SONAME);
        } else if (!m_bOurs) {
            return;
        } else if (const auto path = Behind(line, SEARCH_PATH)) {
            m_rule = RuleOfPath(*path);
        } else if (const auto cache = Behind(line, SEARCH_CACHE)) {
            m_rule = *cache + " (ldconfig)";
        } else if (const auto tried = Behind(line, TRYING)) {
            m_file = *tried;
            m_ruleOfFile = m_rule;
        }
    }
    std::string RuleOf(const std::string& path) const {
        return path == m_file ? m_ruleOfFile : "LD_PRELOAD, or named with its place";
    }

  private:
    bool m_bOurs = false;  // the vendor's library is searched
    std::string m_rule;
    std::string m_file;  // the last one tried
    std::string m_ruleOfFile;
};

// All that a child writes until its end.
std::string ReadAll(int descriptor) {
    std::string text;
    char piece[4096];
    ssize_t size = 0;
    while ((size = read(descriptor, piece, sizeof(piece))) > 0 || (size < 0 && errno == EINTR)) {
        text.append(piece, size > 0 ? static_cast<std::size_t>(size) : 0);
    }
    return text;
}

// This process's environment, the loader asked to tell what it does.
std::vector<std::string> ChattyEnvironment() {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view given = *variable;
        if (!given.starts_with("LD_DEBUG") && !given.starts_with("LD_TRACE_")) {
            variables.emplace_back(given);
        }
    }
    variables.emplace_back("LD_TRACE_LOADED_OBJECTS=1");  // what is loaded, and nothing is run
    variables.emplace_back("LD_DEBUG=libs");
    return variables;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// The loader's output, both streams in one; nothing if it could not be started.
std::optional<std::string> RunLoader(const std::string& file) {
    int ends[2] = {};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    std::vector<std::string> arguments = {LOADER, file};
    std::vector<std::string> environment = ChattyEnvironment();
    posix_spawn_file_actions_t actions{};
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    pid_t child = 0;
    const int failure = posix_spawn(&child, LOADER, &actions, nullptr, Pointers(arguments).data(),
                                    Pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::optional<std::string> text;
    if (failure == 0) {
        text = ReadAll(ends[0]);
        int status = 0;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {}
    } else {
        errno = failure;
    }
    close(ends[0]);
    return text;
}

// The loader's complaint, without the program's name in front.
std::string Complaint(const std::string& text) {
    constexpr std::string_view words = "error while loading shared libraries: ";
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (const auto complaint = Behind(line, words)) {
            return *complaint;
        }
    }
    return "the loader cannot read it";
}

}  // namespace

const char* const VENDOR_SONAME = "libenyx-hw-c.so.5";

std::optional<LoaderAnswer> ReadLoaderOutput(const std::string& text) {
    LoaderAnswer answer;
    CSearch search;
    bool bList = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        search.Take(line);
        // "\tNAME => PATH (0xADDRESS)", "\tNAME => not found", "\tPATH (0xADDRESS)".
        const std::size_t address = line.rfind(" (0x");
        const bool bFound = line.starts_with('\t') && address != std::string::npos;
        bList = bList || bFound || line.ends_with(" => not found");
        const auto taken = Behind(line, std::string(VENDOR_SONAME) + " => ");
        if (taken && line.starts_with('\t')) {
            answer.bNeeded = true;
            answer.path = bFound ? taken->substr(0, taken->rfind(" (0x")) : "";
        }
    }
    if (!bList) {
        return std::nullopt;
    }
    if (!answer.path.empty()) {
        answer.rule = search.RuleOf(answer.path);
    }
    return answer;
}

std::optional<LoaderAnswer> AskLoader(const std::string& file, std::string& reason) {
    // The loader would search a name without a slash in its directories.
    const std::string path = file.find('/') == std::string::npos ? "./" + file : file;
    const std::optional<std::string> text = RunLoader(path);
    if (!text) {
        reason = std::string(LOADER) + ": " + std::strerror(errno);
        return std::nullopt;
    }
    std::optional<LoaderAnswer> answer = ReadLoaderOutput(*text);
    if (!answer) {
        reason = Complaint(*text);
    }
    return answer;
}

}  // namespace ZceMachine

// The library's functions, not its macros of the same names.
#define NCURSES_NOMACROS
#include <ncurses.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "top/TopOutput.h"
#include "top/TopScreen.h"
#include "top/TopTerminfo.h"

namespace ZceBoard {

namespace {

struct CloseFile {
    void operator()(FILE* pFile) const { fclose(pFile); }
};
using InputFile = std::unique_ptr<FILE, CloseFile>;

class CTerminal : public CTopOutput {
  public:
    CTerminal(SCREEN* pScreen, InputFile input) : m_pScreen(pScreen), m_input(std::move(input)) {
        cbreak();
        noecho();
        nodelay(stdscr, true);
        keypad(stdscr, true);
        curs_set(0);
    }

    ~CTerminal() override {
        endwin();
        delscreen(m_pScreen);
    }

    void Show(const std::vector<std::string>& lines) override {
        const auto columns = static_cast<size_t>(std::max(getmaxx(stdscr), 0));
        const auto rows = static_cast<size_t>(std::max(getmaxy(stdscr), 0));
        werase(stdscr);
        int row = 0;
        std::vector<std::string> screen = FitScreen(lines, columns, rows);
        if (!screen.empty()) {
            AddHint(screen.front(), "q quits", columns);
        }
        for (const std::string& line : screen) {
            mvwaddnstr(stdscr, row++, 0, line.data(), static_cast<int>(line.size()));
        }
        wrefresh(stdscr);
    }

    Event Wait(int64_t ns) override {
        const int keys = isatty(STDIN_FILENO) == 1 ? STDIN_FILENO : -1;
        const WaitEnd end = WaitForInput(keys, ns);
        if (end == WaitEnd::Stop) {
            return Event::Quit;
        }
        // A change of the size comes as a signal, and from here as a key.
        Event event = end == WaitEnd::TimeUp ? Event::TimeUp : Event::Redraw;
        if (keys >= 0 || end == WaitEnd::Interrupted) {
            for (int key = wgetch(stdscr); key != ERR; key = wgetch(stdscr)) {
                if (key == 'q' || key == 'Q') {
                    event = Event::Quit;
                }
            }
        }
        return event;
    }

  private:
    SCREEN* m_pScreen;
    InputFile m_input;
};

}  // namespace

std::unique_ptr<CTopOutput> MakeTerminal(std::string& error) {
    // newterm does not clean up behind a terminal that it does not know.
    // Only a user's keys are keys: what else comes on standard input is not read.
    InputFile none;
    if (isatty(STDIN_FILENO) != 1) {
        none.reset(fopen("/dev/null", "re"));
        if (none == nullptr) {
            error = std::string("/dev/null: ") + strerror(errno);
            return nullptr;
        }
    }
    FILE* const pKeys = none != nullptr ? none.get() : stdin;
    SCREEN* const pScreen = IsTerminalKnown() ? newterm(nullptr, stdout, pKeys) : nullptr;
    if (pScreen == nullptr) {
        const char* const type = getenv("TERM");
        error = type == nullptr ? "TERM is not set, and standard output is a terminal"
                                : "TERM: the terminal type \"" + std::string(type) +
                                      "\" is not known or cannot be used";
        return nullptr;
    }
    return std::make_unique<CTerminal>(pScreen, std::move(none));
}

}  // namespace ZceBoard

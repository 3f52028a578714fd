// The library's functions, not its macros of the same names.
#define NCURSES_NOMACROS
#include <ncurses.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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

constexpr int ESCAPE = 27;
constexpr int ESCAPE_MS = 25;  // how soon the rest of a key's sequence comes behind its Escape

struct Colour {
    TopMark mark;
    short colour;
};
constexpr std::array<Colour, 3> COLOURS = {
    {{TopMark::Alarm, COLOR_RED}, {TopMark::Warning, COLOR_YELLOW}, {TopMark::Closed, COLOR_CYAN}}};

short PairOf(TopMark mark) {
    return static_cast<short>(static_cast<int>(mark) + 1);
}

TopKey KeyOf(int code) {
    if (code >= '0' && code <= '9') {
        return {TopKey::Kind::Channel, static_cast<size_t>(code - '0')};
    }
    if (code >= 'a' && code <= 'f') {
        return {TopKey::Kind::Channel, static_cast<size_t>(code - 'a') + 10};
    }
    switch (code) {
        case KEY_UP:
            return {TopKey::Kind::Up};
        case KEY_DOWN:
            return {TopKey::Kind::Down};
        case KEY_PPAGE:
            return {TopKey::Kind::PageUp};
        case KEY_NPAGE:
            return {TopKey::Kind::PageDown};
        case KEY_HOME:
            return {TopKey::Kind::Home};
        case KEY_ENTER:
        case '\r':
        case '\n':
            return {TopKey::Kind::Enter};
        case 'q':
        case 'Q':
            return {TopKey::Kind::Back};
        case ESCAPE:
            return {TopKey::Kind::Leave};
        default:
            return {};
    }
}

class CTerminal : public CTopOutput {
  public:
    CTerminal(SCREEN* pScreen, InputFile input) : m_pScreen(pScreen), m_input(std::move(input)) {
        cbreak();
        noecho();
        nodelay(stdscr, true);
        keypad(stdscr, true);
        set_escdelay(ESCAPE_MS);
        curs_set(0);
        const char* const noColour = getenv("NO_COLOR");
        if ((noColour == nullptr || *noColour == '\0') && has_colors()) {
            start_color();
            use_default_colors();
            for (const auto& [mark, colour] : COLOURS) {
                init_pair(PairOf(mark), colour, -1);
            }
            m_bColour = true;
        }
    }

    ~CTerminal() override {
        endwin();
        delscreen(m_pScreen);
    }

    void Show(const TopPage& page) override {
        const auto columns = static_cast<size_t>(std::max(getmaxx(stdscr), 0));
        const auto rows = static_cast<size_t>(std::max(getmaxy(stdscr), 0));
        werase(stdscr);
        std::vector<TopLine> screen = FitScreen(page.lines, columns, rows);
        if (!screen.empty()) {
            AddHint(screen.front().text, page.hint, columns);
        }
        for (size_t row = 0; row < screen.size(); ++row) {
            Draw(static_cast<int>(row), screen[row]);
        }
        wrefresh(stdscr);
    }

    Event Wait(int64_t ns, TopKey& key) override {
        const int keys = isatty(STDIN_FILENO) == 1 ? STDIN_FILENO : -1;
        // Several keys may have come at one go.
        if (keys >= 0 && NextKey(key)) {
            return Event::Key;
        }
        const WaitEnd end = WaitForInput(keys, ns);
        if (end == WaitEnd::Stop) {
            return Event::Quit;
        }
        // A change of the size comes as a signal, and from here as a key that is none.
        if ((keys >= 0 || end == WaitEnd::Interrupted) && NextKey(key)) {
            return Event::Key;
        }
        return end == WaitEnd::TimeUp ? Event::TimeUp : Event::Redraw;
    }

  private:
    // False: there is none any more.
    static bool NextKey(TopKey& key) {
        for (int code = wgetch(stdscr); code != ERR; code = wgetch(stdscr)) {
            key = KeyOf(code);
            if (key.kind != TopKey::Kind::None) {
                return true;
            }
        }
        return false;
    }

    void Draw(int row, const TopLine& line) const {
        mvwaddnstr(stdscr, row, 0, line.text.data(), static_cast<int>(line.text.size()));
        for (const TopSpan& span : line.spans) {
            const bool bChosen = span.mark == TopMark::Chosen;
            if (bChosen || m_bColour) {
                mvwchgat(stdscr, row, static_cast<int>(span.begin), static_cast<int>(span.length),
                         bChosen ? A_REVERSE : A_NORMAL, bChosen ? short{0} : PairOf(span.mark),
                         nullptr);
            }
        }
    }

    SCREEN* m_pScreen;
    InputFile m_input;
    bool m_bColour = false;
};

}  // namespace

std::unique_ptr<CTopOutput> MakeTerminal(std::string& error) {
    // newterm does not clean up behind a terminal that it does not know.
    if (!CanDrawOnTerminal()) {
        return nullptr;
    }
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
    SCREEN* const pScreen = newterm(nullptr, stdout, pKeys);
    if (pScreen == nullptr) {
        return nullptr;
    }
    return std::make_unique<CTerminal>(pScreen, std::move(none));
}

}  // namespace ZceBoard

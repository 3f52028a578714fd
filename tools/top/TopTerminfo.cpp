#include "top/TopTerminfo.h"

// These headers make macros of words like "columns": nothing else comes in here.
#define NCURSES_NOMACROS
#include <ncurses.h>
#include <term.h>
#include <unistd.h>

namespace ZceBoard {

bool IsTerminalKnown() {
    int error = 0;
    if (setupterm(nullptr, STDOUT_FILENO, &error) != OK) {
        return false;
    }
    del_curterm(cur_term);
    return true;
}

}  // namespace ZceBoard

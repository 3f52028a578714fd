#include "top/TopTerminfo.h"

// These headers make macros of words like "columns": nothing else comes in here.
#define NCURSES_NOMACROS
#include <ncurses.h>
#include <term.h>
#include <unistd.h>

#include <cstdint>

namespace ZceBoard {

namespace {

// A capability that is no text at all is -1 as a pointer.
bool Has(const char* capability) {
    const char* const text = tigetstr(capability);
    return text != nullptr && reinterpret_cast<intptr_t>(text) != -1;
}

}  // namespace

bool CanDrawOnTerminal() {
    int error = 0;
    if (setupterm(nullptr, STDOUT_FILENO, &error) != OK) {
        return false;
    }
    const bool bCan = Has("cup") && Has("clear");
    del_curterm(cur_term);
    return bCan;
}

}  // namespace ZceBoard

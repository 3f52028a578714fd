#include "Board.h"

#include <dlfcn.h>

#include "ZceBoardState.h"

namespace {

// Asked for by its name, so that the program starts with the board vendor's library too.
ZceBoardState_f Function() {
    static const ZceBoardState_f pFunction =
        reinterpret_cast<ZceBoardState_f>(dlsym(RTLD_DEFAULT, ZCE_BOARD_STATE_NAME));
    return pFunction;
}

}  // namespace

bool CanTellBoard() {
    return Function() != nullptr;
}

int BoardState() {
    return CanTellBoard() ? Function()() : ZCE_BOARD_RUNS;
}

#pragma once

// Whether the board still runs, as far as the board's library tells: the software board's does.

// Whether the library that the process has loaded can tell it.
bool CanTellBoard();

// One of ZceBoardState.h; ZCE_BOARD_RUNS if the library cannot tell. Any thread.
int BoardState();

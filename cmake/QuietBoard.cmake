# Read by ctest, which hands its environment to the tests: the software board's library says nothing
# on standard error of the board that it opens. Tests of what it says take the setting back.
set(ENV{ZCE_BOARD_QUIET} 1)

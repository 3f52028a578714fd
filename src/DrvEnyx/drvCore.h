#pragma once

struct enyx_hw_accelerator;
struct enyx_hw_core;

// Finds the objects of the boards in the vendor's library and keeps them for the process: for each
// bus index the accelerator, its register space, the tree of cores in it and the tree's root.
//
// The two discovery functions may be called from any thread: they wait for each other, also for the
// second that a root core needs after its reset. Every failure has been logged when they return,
// and errno is still that of the failed vendor call. Bus indices 0 to 9 are valid.

// The accelerator of the bus index, or null. It lives as long as the process.
enyx_hw_accelerator* DrvEnyxCoreGetAcc(unsigned short bus);

// What the board needs after the reset of its root core.
constexpr unsigned int ZCE_ROOT_RESET_SECONDS = 1;

// Fills up to `capacity` handles of the cores with the hardware id `coreId` into `cores` and
// returns how many the library reports (0: none has the id), or -1. The first call for a bus resets
// its root core and sleeps for one second; so does the first one after a DrvEnyxVarClear.
int DrvEnyxGetCore(unsigned short bus, unsigned short coreId, enyx_hw_core** cores,
                   unsigned long capacity);

// Forgets everything found so far. Nothing is destroyed: handles given out stay valid. Takes no
// lock; a discovery going on in another thread may enter what it finds after the clear.
void DrvEnyxVarClear();

#pragma once

class IDrv;
class IDrvDMA;

// Where the drivers of this process come from. Who uses a driver knows IDrv and IDrvDMA and this
// page, not the classes behind them: another definition of these functions, linked in place of
// drvFactory.cpp, puts other drivers below the whole library.

// A new, unopened driver of one channel's streams; the caller's to delete.
IDrvDMA* DrvEnyxMakeDma();

// The register driver of the process, made (and not yet opened) if there is none. It stays the
// process's until DrvEnyxForgetReg, and is then its user's to delete.
//
// Neither function locks: CVelaZceMdApiImpl calls both under its lock of the driver.
IDrv* DrvEnyxProcessReg();
// If `drv` is the register driver of the process, the process has none afterwards. Deletes nothing.
void DrvEnyxForgetReg(const IDrv* drv);

#include "DrvEnyx/drvFactory.h"

#include "DrvEnyx/drvDMAEnyx.h"
#include "DrvEnyx/drvEnyx.h"

IDrvDMA* DrvEnyxMakeDma() {
    return new CDrvDMAEnyx;
}

IDrv* DrvEnyxProcessReg() {
    if (CDrvEnyxReg::instance == nullptr) {
        CDrvEnyxReg::instance = new CDrvEnyxReg;
    }
    return CDrvEnyxReg::instance;
}

void DrvEnyxForgetReg(const IDrv* drv) {
    if (CDrvEnyxReg::instance == drv) {
        CDrvEnyxReg::instance = nullptr;
    }
}

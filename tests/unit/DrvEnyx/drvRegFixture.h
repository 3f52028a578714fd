#pragma once

#include <cstddef>
#include <numeric>
#include <vector>

#include "DrvEnyx/drvEnyx.h"
#include "drvFixture.h"

using Bytes = std::vector<unsigned char>;

// Bytes 1, 2, 3, ...
inline Bytes Counting(std::size_t count) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
    return bytes;
}

class DrvReg : public DrvTest {
  protected:
    // The driver, started on bus 0, with the calls of that forgotten.
    void Start() {
        DrvRegInitParms_t parms{0, 474};
        ASSERT_EQ(m_drv.Init(&parms), 0);
        velatest::FakeEnyx::ClearCalls();
    }

    CDrvEnyxReg m_drv;
};

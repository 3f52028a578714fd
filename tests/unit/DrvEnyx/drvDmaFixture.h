#pragma once

#include <memory>
#include <string>

#include "DrvEnyx/drvDMAEnyx.h"
#include "drvFixture.h"

inline const std::string stream = "CUSTOM_CHAN3_DATA";

class DrvDma : public DrvTest {
  protected:
    int Init(const std::string& name = stream, unsigned int bus = 0) {
        DrvDmaInitParms_t parms{bus, name, 0, 64, 0};
        return m_drv->Init(&parms);
    }

    void Start() {
        ASSERT_EQ(Init(), 0);
        m_log.Clear();
        velatest::FakeEnyx::ClearCalls();
    }

    std::unique_ptr<CDrvDMAEnyx> m_drv = std::make_unique<CDrvDMAEnyx>();
};

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DrvEnyx/drvCore.h"
#include "fakeClock.h"
#include "fakeEnyx.h"
#include "logCapture.h"

// The drivers on a vendor's library with scripted answers, with nothing discovered yet.
class DrvTest : public ::testing::Test {
  protected:
    DrvTest() {
        velatest::FakeEnyx::Reset();
        DrvEnyxVarClear();
        velatest::FakeClock::ClearSleeps();
        velatest::FakeClock::OnSleep(nullptr);
    }

    velatest::LogCapture m_log;
};

using Lines = std::vector<std::string>;

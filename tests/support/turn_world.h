// What tests of turns share.
#pragma once

#include <gtest/gtest.h>

#include "framework/core/turn.h"
#include "support/sample.h"

namespace Test {

/// A device with two reactors, "a" and "b".
class TurnWorld : public testing::Test {
 protected:
  void TearDown() override {
    a = b = nullptr;
    device = nullptr;
    EXPECT_EQ(Sample::Counted::alive, 0);
    EXPECT_FALSE(Nox::Turn::isOpen());
  }
  Nox::Ptr<Sample::Recorder> reactor(char const* name) { return Nox::make<Sample::Recorder>(name, log, device); }

  Sample::Log log;
  Nox::Ptr<Sample::Device> device = Nox::make<Sample::Device>();
  Nox::Ptr<Sample::Recorder> a = reactor("a");
  Nox::Ptr<Sample::Recorder> b = reactor("b");
};

}  // namespace Test

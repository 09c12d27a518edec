#include "host/agent/clock_step.h"

#include <gtest/gtest.h>

using xfhost::ClockStepDetector;

namespace {

constexpr int64_t second = 1000000000;

TEST(ClockStep, TimePassingIsNoStep) {
    ClockStepDetector detector(1000 * second, 5 * second);
    EXPECT_FALSE(detector.look(1600 * second, 605 * second));
}

TEST(ClockStep, ForwardAndBackAreToldOnce) {
    ClockStepDetector detector(1000 * second, 5 * second);
    auto forward = detector.look(1000 * second + 3600 * second, 5 * second);
    ASSERT_TRUE(forward);
    EXPECT_EQ(forward->seconds, 3600u);
    EXPECT_EQ(forward->direction, 1);
    EXPECT_FALSE(detector.look(4601 * second, 6 * second));
    auto back = detector.look(1002 * second, 7 * second);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->seconds, 3600u);
    EXPECT_NE(back->direction, 1);
    EXPECT_FALSE(detector.look(1002 * second, 7 * second));
}

TEST(ClockStep, SmallStepsAddUp) {
    ClockStepDetector detector(0, 0);
    EXPECT_FALSE(detector.look(600000000, 0));
    auto step = detector.look(1200000000, 0);
    ASSERT_TRUE(step);
    EXPECT_EQ(step->seconds, 1u);
    EXPECT_EQ(step->direction, 1);
    EXPECT_FALSE(detector.look(1200000000, 0));
    // The 0.2 s that are left count against a step back.
    EXPECT_FALSE(detector.look(300000000, 0));
    EXPECT_TRUE(detector.look(0, 0));
}

TEST(ClockStep, OppositeSmallStepsCancel) {
    ClockStepDetector detector(0, 0);
    EXPECT_FALSE(detector.look(-990000000, 0));
    EXPECT_FALSE(detector.look(990000000, 0));
    EXPECT_FALSE(detector.look(0, 0));
}

TEST(ClockStep, FractionsAreRoundedTowardsZero) {
    ClockStepDetector detector(0, 0);
    auto step = detector.look(-2 * second - 900000000, 0);
    ASSERT_TRUE(step);
    EXPECT_EQ(step->seconds, 2u);
    EXPECT_EQ(step->direction, -1);
}

TEST(ClockStep, ReadingTheClocksLateDoesNotSplitAStep) {
    ClockStepDetector detector(0, 0);
    auto step = detector.look(3600 * second - 4000000, 0);
    ASSERT_TRUE(step);
    EXPECT_EQ(step->seconds, 3600u);
    EXPECT_FALSE(detector.look(3600 * second + 4000000, 0));
}

TEST(ClockStep, GiantStepIsBounded) {
    ClockStepDetector detector(0, 0);
    auto step = detector.look(9000000000 * second, 0);
    ASSERT_TRUE(step);
    EXPECT_EQ(step->seconds, UINT32_MAX);
}

} // namespace

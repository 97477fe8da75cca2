#include "engine/Random.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

TEST(random_test, generator_step_and_unit_values_follow_the_standard_library) {
    for (uint32_t seed : {1u, 12345u, 2147483646u}) {
        std::minstd_rand reference(seed);
        uint32_t state = seed;
        for (int i = 0; i < 10000; ++i) {
            state = Random::Advance(state);
            ASSERT_EQ(state, reference()) << "seed " << seed << " step " << i;
        }
    }
    std::minstd_rand generator(20240917u);
    for (int i = 0; i < 1000; ++i) {
        std::minstd_rand copy = generator;
        const uint32_t a = copy();
        const uint32_t b = copy();
        std::uniform_real_distribution<double> uniform(0.0, 1.0);
        ASSERT_DOUBLE_EQ(Random::ToUnit(a, b), uniform(generator));
    }
    EXPECT_LT(Random::ToUnit(Random::kModulus - 1, Random::kModulus - 1), 1.0);
}

TEST(random_test, draws_cover_their_range_and_nothing_outside_it) {
    Random random(2.0, 5.0);
    double lowest = 5, highest = 2;
    for (int i = 0; i < 20000; ++i) {
        const double value = random.Uniform();
        ASSERT_GE(value, 2.0);
        ASSERT_LT(value, 5.0);
        lowest = std::min(lowest, value);
        highest = std::max(highest, value);
    }
    EXPECT_LT(lowest, 2.01);
    EXPECT_GT(highest, 4.99);
    random.SetRange(-1, -1);
    EXPECT_EQ(random.Uniform(), -1);
}

#include "engine/Random.h"

#include <gtest/gtest.h>

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

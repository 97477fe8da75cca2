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

TEST(random_test, values_stay_in_the_range_between_the_bounds_and_instances_differ) {
    // Reversed bounds give values above max up to and including min; SetRange moves later values.
    const struct {
        double min, max, low, high;
        bool lowIncluded, highIncluded;
    } cases[] = {{-2.5, 4.0, -2.5, 4.0, true, false}, {1.0, 0.0, 0.0, 1.0, false, true}};
    for (const auto& c : cases) {
        Random random(0.0, 100.0);
        random.SetRange(c.min, c.max);
        for (int i = 0; i < 10000; ++i) {
            const double v = random.Uniform();
            ASSERT_TRUE(c.lowIncluded ? v >= c.low : v > c.low) << v;
            ASSERT_TRUE(c.highIncluded ? v <= c.high : v < c.high) << v;
        }
    }
    // Equal sequences would need equal seeds: a chance of about one in two thousand million.
    Random a(0.0, 1.0), b(0.0, 1.0);
    std::vector<double> first, second;
    for (int i = 0; i < 4; ++i) {
        first.push_back(a.Uniform());
        second.push_back(b.Uniform());
    }
    EXPECT_NE(first, second);
}

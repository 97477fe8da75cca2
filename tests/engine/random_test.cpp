#include "engine/Random.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

TEST(random_test, generator_step_follows_the_standard_minimal_generator) {
    for (uint32_t seed : {1u, 2u, 12345u, 48271u, 2147483646u}) {
        std::minstd_rand reference(seed);
        uint32_t state = seed;
        for (int i = 0; i < 10000; ++i) {
            state = Random::Advance(state);
            ASSERT_EQ(state, reference()) << "seed " << seed << " step " << i;
        }
        if (seed == 1) {
            EXPECT_EQ(state, 399268537u);  // the published check value
        }
    }
}

TEST(random_test, two_draws_combine_as_the_standard_uniform_distribution_does) {
    std::minstd_rand generator(20240917u);
    for (int i = 0; i < 1000; ++i) {
        std::minstd_rand copy = generator;
        const uint32_t a = copy();
        const uint32_t b = copy();
        std::uniform_real_distribution<double> uniform(0.0, 1.0);
        ASSERT_DOUBLE_EQ(Random::ToUnit(a, b), uniform(generator));
    }
    EXPECT_EQ(Random::ToUnit(1, 1), 0.0);
    EXPECT_LT(Random::ToUnit(Random::kModulus - 1, Random::kModulus - 1), 1.0);
}

TEST(random_test, values_stay_in_the_range_between_the_bounds) {
    // Reversed bounds give values above max up to and including min; equal bounds give that bound.
    const struct {
        double min, max, low, high;
        bool lowIncluded, highIncluded;
    } cases[] = {{-2.5, 4.0, -2.5, 4.0, true, false},
                 {1.0, 0.0, 0.0, 1.0, false, true},
                 {0.75, 0.75, 0.75, 0.75, true, true},
                 {10.0, 20.0, 10.0, 20.0, true, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.min << ".." << c.max);
        Random random(c.min, c.max);
        if (c.min == 10.0) {  // SetRange moves later values into the new range
            random.SetRange(0.0, 1.0);
            random.Uniform();
            random.SetRange(c.min, c.max);
        }
        for (int i = 0; i < 10000; ++i) {
            const double v = random.Uniform();
            ASSERT_TRUE(c.lowIncluded ? v >= c.low : v > c.low) << v;
            ASSERT_TRUE(c.highIncluded ? v <= c.high : v < c.high) << v;
        }
    }
}

TEST(random_test, values_spread_over_the_whole_range) {
    Random random(0.0, 1.0);
    std::vector<int> buckets(10, 0);
    for (int i = 0; i < 10000; ++i)
        ++buckets[static_cast<int>(random.Uniform() * 10)];
    // 1000 expected per bucket; a fair generator is never this far off.
    for (int count : buckets) {
        EXPECT_GT(count, 800);
        EXPECT_LT(count, 1200);
    }
}

TEST(random_test, every_instance_is_seeded_afresh) {
    // Equal sequences would need equal seeds: a chance of about one in two thousand million.
    Random a(0.0, 1.0);
    Random b(0.0, 1.0);
    std::vector<double> first;
    std::vector<double> second;
    for (int i = 0; i < 4; ++i) {
        first.push_back(a.Uniform());
        second.push_back(b.Uniform());
    }
    EXPECT_NE(first, second);
}

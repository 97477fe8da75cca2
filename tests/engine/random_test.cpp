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
    }
}

TEST(random_test, ten_thousandth_value_from_seed_one_is_the_published_check_value) {
    uint32_t state = 1;
    for (int i = 0; i < 10000; ++i)
        state = Random::Advance(state);
    EXPECT_EQ(state, 399268537u);
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
}

TEST(random_test, unit_value_spans_zero_up_to_but_not_including_one) {
    EXPECT_EQ(Random::ToUnit(1, 1), 0.0);
    EXPECT_LT(Random::ToUnit(Random::kModulus - 1, Random::kModulus - 1), 1.0);
}

TEST(random_test, values_stay_in_the_half_open_range) {
    Random random(-2.5, 4.0);
    for (int i = 0; i < 10000; ++i) {
        const double v = random.Uniform();
        ASSERT_GE(v, -2.5);
        ASSERT_LT(v, 4.0);
    }
}

TEST(random_test, equal_bounds_always_give_that_bound) {
    Random random(0.75, 0.75);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(random.Uniform(), 0.75);
}

TEST(random_test, reversed_bounds_give_values_above_max_up_to_min) {
    Random random(1.0, 0.0);
    for (int i = 0; i < 10000; ++i) {
        const double v = random.Uniform();
        ASSERT_GT(v, 0.0);
        ASSERT_LE(v, 1.0);
    }
}

TEST(random_test, set_range_moves_later_values_into_the_new_range) {
    Random random(0.0, 1.0);
    random.Uniform();
    random.SetRange(10.0, 20.0);
    for (int i = 0; i < 1000; ++i) {
        const double v = random.Uniform();
        ASSERT_GE(v, 10.0);
        ASSERT_LT(v, 20.0);
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

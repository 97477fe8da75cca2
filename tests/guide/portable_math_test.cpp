#include "guide/PortableMath.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// |got - exact| in units of the last place of the double nearest exact (long double carries 11 more bits).
double UlpError(double got, long double exact) {
    const double nearest = static_cast<double>(exact);
    // No error for the same double (sign of zero included) or for NaN beside NaN.
    if (std::bit_cast<uint64_t>(got) == std::bit_cast<uint64_t>(nearest) ||
        (got != got && nearest != nearest))
        return 0;
    const double ulp = std::nextafter(std::fabs(nearest), kInf) - std::fabs(nearest);
    return got == 0 || std::isinf(nearest) ? kInf : static_cast<double>(std::fabs(got - exact) / ulp);
}

}  // namespace

TEST(portable_math_test, each_function_keeps_its_stated_error_over_the_ranges_the_engine_uses) {
    std::mt19937_64 random(20261124);
    const auto in = [&random](double low, double high) {
        return std::uniform_real_distribution<double>(low, high)(random);
    };
    double sine = 0, cosine = 0, atan2 = 0, hypot = 0, log = 0, pow = 0;
    for (int i = 0; i < (1 << 20); ++i) {
        // Angles of a few turns, and the odd one far out; offsets across a page, some along an axis.
        const double angle = i % 64 ? in(-20, 20) : in(-3e5, 3e5);
        const auto [s, c] = portable::SinCos(angle);
        sine = std::max(sine, UlpError(s, sinl(angle)));
        cosine = std::max(cosine, UlpError(c, cosl(angle)));
        const double dx = in(-9000, 9000), dy = in(-9000, 9000) * (i % 4 ? 1 : 1e-6);
        atan2 = std::max(atan2, UlpError(portable::Atan2(dy, dx), atan2l(dy, dx)));
        hypot = std::max(hypot, UlpError(portable::Hypot(dx, dy), hypotl(dx, dy)));
        // Radius ratios over the whole range, and the disc profile's powers.
        const double ratio = std::ldexp(in(1, 2), static_cast<int>(in(-1060, 1020)));
        log = std::max(log, UlpError(portable::Log(ratio), logl(ratio)));
        const double base = i % 2 ? in(0, 1) : in(1, 1e4), exponent = in(1, 5);
        pow = std::max(pow, UlpError(portable::Pow(base, exponent), powl(base, exponent)));
    }
    EXPECT_LT(std::max({sine, cosine, hypot}), 0.51);
    EXPECT_LT(std::max({atan2, log}), 0.75);
    EXPECT_LT(pow, 1.0);
}

TEST(portable_math_test, special_and_far_arguments_give_what_c99_gives) {
    // Every pairing of signed zeros, infinities, NaN, extremes and ordinary values.
    const double values[] = {0.0, -0.0, 1.0, -2.5, kInf, -kInf, kNaN, 1e300, -3e-310, 0x1p-1074};
    for (double y : values) {
        for (double x : values) {
            EXPECT_LT(UlpError(portable::Atan2(y, x), atan2l(y, x)), 0.75) << "atan2 " << y << ", " << x;
            EXPECT_LT(UlpError(portable::Hypot(x, y), hypotl(x, y)), 0.51) << "hypot " << x << ", " << y;
            EXPECT_LT(UlpError(portable::Pow(x, y), powl(x, y)), 1.0) << "pow " << x << ", " << y;
        }
        EXPECT_LT(UlpError(portable::Log(y), logl(y)), 0.75) << "log " << y;
        EXPECT_EQ(std::isnan(portable::SinCos(y).sine), std::isnan(std::sin(y))) << "sin " << y;
    }
    // Far past where the reduction is exact the values stay sines, the same on every system.
    for (double far : {1e7, 1e22, -1e300})
        EXPECT_LE(std::fabs(portable::SinCos(far).sine), 1.0);
}

#include "engine/Random.h"

#include <cmath>
#include <random>

namespace {

// The entropy device. Platforms without it fall back to their default random_device.
std::random_device::result_type DrawEntropy() {
    try {
        std::random_device device("/dev/urandom");
        return device();
    } catch (...) {
        std::random_device device;
        return device();
    }
}

}  // namespace

Random::Random(double min, double max) : m_min(min), m_max(max) {
    const uint32_t r = static_cast<uint32_t>(DrawEntropy() % kModulus);
    // 0 is the generator's fixed point.
    m_seed = r == 0 ? 1 : r;
}

uint32_t Random::Advance(uint32_t state) {
    // Schrage: with m = a*q + r and r < q, a*(s mod q) - r*(s / q) equals a*s mod m up to one m.
    constexpr int32_t kQuotient = 44488;  // m / a
    constexpr int32_t kRemainder = 3399;  // m % a
    const int32_t s = static_cast<int32_t>(state);
    int32_t next = static_cast<int32_t>(kMultiplier) * (s % kQuotient) - kRemainder * (s / kQuotient);
    if (next < 0) next += static_cast<int32_t>(kModulus);
    return static_cast<uint32_t>(next);
}

double Random::ToUnit(uint32_t first, uint32_t second) {
    // The generator has m - 1 distinct outputs 1 .. m - 1.
    constexpr double kRange = static_cast<double>(kModulus - 1);
    const double u = ((static_cast<double>(first) - 1.0) + (static_cast<double>(second) - 1.0) * kRange) /
                     (kRange * kRange);
    // The largest pair rounds up to 1.0; keep the range half-open as the standard library does.
    return u < 1.0 ? u : std::nextafter(1.0, 0.0);
}

double Random::Uniform() {
    m_seed = Advance(m_seed);
    const uint32_t a = m_seed;
    m_seed = Advance(m_seed);
    const uint32_t b = m_seed;
    return m_min + (m_max - m_min) * ToUnit(a, b);
}

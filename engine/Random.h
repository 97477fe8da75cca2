// A uniform random source over [min, max), seeded afresh from the operating system's entropy device
// for every instance, so two runs with the same settings lay their lines out differently. There is
// deliberately no way to seed an instance: the engine never repeats an arrangement.
//
// The generator is the minimal-standard Lehmer generator (the standard library's minstd_rand); its
// step and the way two draws make one double are exposed as pure functions so that they can be
// checked against the standard library.
#pragma once

#include <cstdint>

class Random {
public:
    static constexpr uint32_t kModulus = 2147483647;  // 2^31 - 1, a prime
    static constexpr uint32_t kMultiplier = 48271;

    Random(double min, double max);

    // Replaces the range; the generator goes on from where it is.
    void SetRange(double min, double max) {
        m_min = min;
        m_max = max;
    }

    // A value in [min, max) (in (max, min] when min > max; always min when they are equal).
    double Uniform();

    // One generator step: state * 48271 mod (2^31 - 1) without 64-bit arithmetic (Schrage's method).
    // `state` must be in 1 .. 2^31 - 2; so is the result.
    static uint32_t Advance(uint32_t state);
    // Two successive generator outputs as one double in [0, 1), the way uniform_real_distribution
    // combines them for a 53-bit mantissa.
    static double ToUnit(uint32_t first, uint32_t second);

private:
    uint32_t m_seed;  // generator state
    double m_min;
    double m_max;
};

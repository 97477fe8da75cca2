// PortableMath: the transcendental functions the engine and the guide code draw with, the same to the
// last bit on every system.
//
//   const auto [sine, cosine] = portable::SinCos(angle);
//   const double away = portable::Hypot(dx, dy);
//
// Each system's C library rounds sin, cos, atan2, pow and log its own way in the last place, and a
// pixel whose coverage sits on a rounding boundary then comes out one level apart: the same preset drew
// different bytes on Windows than on Linux. These are built from IEEE basic operations only (+, -, *, /,
// sqrt, and exact conversions), so with floating-point contraction off every build computes the same
// bits. Sine and cosine come from a table of 51 points and short Taylor series, the arc tangent,
// logarithm and exponential from fdlibm's freely distributable polynomials. The accuracy stated per
// function is measured against long double over the ranges the engine uses (tests/guide).
#pragma once

namespace portable {

// sin x and cos x, which every caller wants together: const auto [s, c] = portable::SinCos(angle).
// Within 0.51 ulp, nearly always the correctly rounded result, for |x| < 2^19 pi/2. Beyond that the
// argument is first taken modulo the double nearest 2 pi: still the same on every system, but no
// longer near the true sine.
struct SineCosine {
    double sine;
    double cosine;
};
SineCosine SinCos(double x);

// Within 0.75 ulp; signed zeros, infinities and NaN as C99 gives them.
double Atan2(double y, double x);

// Within 0.51 ulp, nearly always the correctly rounded result; no overflow or underflow on the way,
// and infinite whenever either side is, even beside a NaN.
double Hypot(double x, double y);

// Within 0.75 ulp; NaN below 0, -infinity at 0.
double Log(double x);

// Under 1 ulp for |y log x| up to a few hundred; zeros, negative bases, infinities and NaN as C99.
double Pow(double x, double y);

}  // namespace portable

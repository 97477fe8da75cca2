#include "guide/PortableMath.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

// Only +, -, *, /, sqrt, comparisons and exact bit moves below: those round the same everywhere. The
// build turns floating-point contraction off, so no compiler fuses a multiply and an add here.
// (std::fabs, std::isnan, std::signbit and std::fmod are exact: they have no rounding to differ in.)

namespace portable {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
// Adding and taking away 1.5 * 2^52 rounds a double below 2^51 to the nearest integer (ties to even).
constexpr double kIntegerShift = 0x1.8p52;

double RoundToInteger(double x) {
    return (x + kIntegerShift) - kIntegerShift;
}

// The bits of a double and back (memcpy: the page's C++ library has no std::bit_cast).
uint64_t BitsOf(double x) {
    uint64_t bits;
    std::memcpy(&bits, &x, sizeof bits);
    return bits;
}

double FromBits(uint64_t bits) {
    double x;
    std::memcpy(&x, &bits, sizeof x);
    return x;
}

// 2^k for -1022 <= k <= 1023.
double PowerOfTwo(int k) {
    return FromBits(static_cast<uint64_t>(k + 1023) << 52);
}

int BiasedExponent(double x) {
    return static_cast<int>((BitsOf(x) >> 52) & 0x7ff);
}

// a * b = p + e exactly (Dekker), for |a|, |b| well inside the range: each is split into two halves
// of 26 bits whose products are exact.
void TwoProduct(double a, double b, double& p, double& e) {
    constexpr double kSplit = 0x1p27 + 1;
    const double ca = kSplit * a, cb = kSplit * b;
    const double ah = ca - (ca - a), al = a - ah;
    const double bh = cb - (cb - b), bl = b - bh;
    p = a * b;
    e = ((ah * bh - p) + ah * bl + al * bh) + al * bl;
}

// a * a = p + e exactly: TwoProduct with one split.
void TwoSquare(double a, double& p, double& e) {
    constexpr double kSplit = 0x1p27 + 1;
    const double c = kSplit * a;
    const double ah = c - (c - a), al = a - ah;
    p = a * a;
    e = ((ah * ah - p) + 2.0 * ah * al) + al * al;
}

// --- sine and cosine --------------------------------------------------------------------------------

// pi/2 in three pieces of 33 bits, each with the rest of pi/2 after it: n * piece is exact for the
// quadrant counts |n| < 2^20 that the reduction takes without first taking the argument modulo 2 pi.
constexpr double kInvPio2 = 0x1.45f306dc9c883p-1;
constexpr double kPio2Part1 = 0x1.921fb544p+0, kPio2Rest1 = 0x1.0b4611a626331p-34;
constexpr double kPio2Part2 = 0x1.0b4611a6p-34, kPio2Rest2 = 0x1.3198a2e037073p-69;
constexpr double kPio2Part3 = 0x1.3198a2ep-69, kPio2Rest3 = 0x1.b839a252049c1p-104;
constexpr double kLargestReduced = 0x1p19 * 0x1.921fb54442d18p+0;
constexpr double kTwoPi = 0x1.921fb54442d18p+2;

// x = n pi/2 + (r + tail), |r| <= about pi/4; returns n mod 4.
int ReduceByHalfPi(double x, double& r, double& tail) {
    if (!(std::fabs(x) < kLargestReduced)) x = std::fmod(x, kTwoPi);
    const double n = RoundToInteger(x * kInvPio2);
    double rest = x - n * kPio2Part1;  // exact: the two are within a few pi/2 of each other
    double w = n * kPio2Rest1;
    r = rest - w;
    // A result far smaller than x has lost bits to cancellation: then the next piece of pi/2 comes off
    // exactly, and what rounding lost is carried in w.
    const auto takeOff = [&](double part, double partRest) {
        const double before = rest;
        w = n * part;
        rest = before - w;
        w = n * partRest - ((before - rest) - w);
        r = rest - w;
    };
    const int exponent = BiasedExponent(x);
    if (exponent - BiasedExponent(r) > 16) {
        takeOff(kPio2Part2, kPio2Rest2);
        if (exponent - BiasedExponent(r) > 49) takeOff(kPio2Part3, kPio2Rest3);
    }
    tail = (rest - r) - w;
    return static_cast<int>(static_cast<int64_t>(n) & 3);
}

// a + b = sum + error exactly, for |a| >= |b| or a = 0.
void FastTwoSum(double a, double b, double& sum, double& error) {
    sum = a + b;
    error = (a - sum) + b;
}

// a + b = sum + error exactly.
void TwoSum(double a, double b, double& sum, double& error) {
    sum = a + b;
    const double bb = sum - a;
    error = (a - (sum - bb)) + (b - bb);
}

// sin and cos of k/64 for k = 0..50, each as the nearest double and the rest.
constexpr double kTable[51][4] = {
    {0x0.0p+0, 0x0.0p+0, 0x1.0000000000000p+0, 0x0.0p+0},
    {0x1.fffaaaaeeeed5p-7, -0x1.2ab639a9f0776p-63, 0x1.fff000155549fp-1, 0x1.28a28a03a5ef3p-55},
    {0x1.ffeaaaeeee86fp-6, -0x1.cd406fb224ae2p-60, 0x1.ffc00155527d3p-1, -0x1.3b54492d89b5bp-55},
    {0x1.7fdc01032fba9p-5, -0x1.599bdf46e997ap-59, 0x1.ff7006bfdf99fp-1, -0x1.8b3b560648d5fp-56},
    {0x1.ffaaaeeed4edbp-5, -0x1.2d16d32684b69p-59, 0x1.ff0015549f4d3p-1, 0x1.328387b99426fp-55},
    {0x1.3facb12d1755bp-4, -0x1.921915299468bp-58, 0x1.fe7034129ef6fp-1, -0x1.cbf4337c96f97p-57},
    {0x1.7f701032550e4p-4, 0x1.afc2d1800501ap-60, 0x1.fdc06bf7e6b9bp-1, 0x1.31902b535f8dbp-55},
    {0x1.bf1b78568391dp-4, 0x1.e91841dea4cc8p-58, 0x1.fcf0c800e99b1p-1, 0x1.ea3d786d186acp-57},
    {0x1.feaaeee86ee36p-4, -0x1.afcb2bcc6f03bp-59, 0x1.fc015527d5bd3p-1, 0x1.b68f35094efb8p-55},
    {0x1.1f0d3d7afceafp-3, -0x1.6ef95099769a5p-57, 0x1.faf22263c4bd3p-1, -0x1.52ace133a2769p-58},
    {0x1.3eb312c5d66cbp-3, 0x1.47d666b66cb91p-57, 0x1.f9c340a7cc428p-1, 0x1.c5b6b063b7462p-55},
    {0x1.5e44fcfa126f3p-3, -0x1.6f443063f89b6p-57, 0x1.f874c2e1eecf6p-1, -0x1.c6514e1332b16p-55},
    {0x1.7dc102fbaf2b5p-3, 0x1.5ab50e23c97c3p-59, 0x1.f706bdf9ece1cp-1, -0x1.698c80c36dcb4p-55},
    {0x1.9d252d0cec312p-3, 0x1.9c43d80b1137dp-58, 0x1.f57948cff6797p-1, 0x1.e3a0d3e03b1d4p-57},
    {0x1.bc6f84edc6199p-3, 0x1.9c1a56a7b0cabp-57, 0x1.f3cc7c3b3d16ep-1, -0x1.21a3ad28a3494p-57},
    {0x1.db9e15fb5a5d0p-3, -0x1.32e20d6cc6fc2p-57, 0x1.f20073086649fp-1, 0x1.b940416c1984bp-56},
    {0x1.faaeed4f31577p-3, -0x1.15d88508e32b8p-57, 0x1.f01549f7deea1p-1, 0x1.d3c1e99e5cafdp-55},
    {0x1.0cd00cef36436p-2, -0x1.9fb0a0c93e2b4p-56, 0x1.ee0b1fbc0f11cp-1, -0x1.bfd2380bbc3b1p-59},
    {0x1.1c37d64c6b876p-2, 0x1.46076fe0dcff4p-56, 0x1.ebe214f76efa8p-1, -0x1.02f9f12ba543ep-55},
    {0x1.2b8ddc43eb49fp-2, 0x1.1553899f2d807p-57, 0x1.e99a4c3a7cd83p-1, -0x1.2264b1bc53ce8p-55},
    {0x1.3ad129769d3d8p-2, 0x1.03d550487839ap-63, 0x1.e733ea0193d40p-1, -0x1.6428b3546ce13p-55},
    {0x1.4a00c9b0f3d20p-2, 0x1.823ba6bb08eadp-56, 0x1.e4af14b2a449cp-1, -0x1.68ca02e8a6833p-55},
    {0x1.591bc9fa2f597p-2, 0x1.7c74bac3fe0cbp-57, 0x1.e20bf49acd6c1p-1, -0x1.660aec7ef636bp-58},
    {0x1.682138a38d7f7p-2, -0x1.d889202444aadp-56, 0x1.df4ab3ebd875ep-1, -0x1.e2d8a7e6736c4p-55},
    {0x1.7710255764214p-2, -0x1.6ead7314bb6cep-57, 0x1.dc6b7eb995912p-1, 0x1.4b364776dcd35p-58},
    {0x1.85e7a12826949p-2, 0x1.8a40e9b5face0p-56, 0x1.d96e82f71a9dcp-1, 0x1.ff61bd5d2039dp-55},
    {0x1.94a6be9f546c5p-2, -0x1.69ce13e683f58p-56, 0x1.d653f073e4040p-1, -0x1.76236434bec37p-55},
    {0x1.a34c91cc50ccap-2, -0x1.a310e3b50cecdp-58, 0x1.d31bf8d8d7c06p-1, 0x1.e60dd3089cbddp-56},
    {0x1.b1d8305321617p-2, -0x1.ae242cb99f519p-56, 0x1.cfc6cfa52ad9fp-1, 0x1.8b5b5508f2a0dp-55},
    {0x1.c048b17b140a3p-2, 0x1.19fe6757e9fa7p-57, 0x1.cc54aa2b2972ep-1, 0x1.4ee162ba83a98p-57},
    {0x1.ce9d2e3d4a51fp-2, -0x1.2fc8a12dae298p-57, 0x1.c8c5bf8ce1a84p-1, 0x1.ab3d1a1590123p-56},
    {0x1.dcd4c15329c9ap-2, 0x1.0d4c6e171fd9ap-56, 0x1.c51a48b8b175ep-1, -0x1.1bbb43b9aa880p-57},
    {0x1.eaee8744b05f0p-2, -0x1.789b43c9b027dp-58, 0x1.c1528065b7d50p-1, -0x1.892111312e828p-55},
    {0x1.f8e99e76abc97p-2, 0x1.9d950af2d00a3p-58, 0x1.bd6ea310294f5p-1, 0x1.31bbcc88c109dp-56},
    {0x1.0362939c69955p-1, -0x1.2d8cd78397b01p-55, 0x1.b96eeef58840ep-1, 0x1.45a3cc78fade0p-58},
    {0x1.0a4021e9e1001p-1, -0x1.6f643a13914f6p-55, 0x1.b553a410c104ep-1, 0x1.8ff7947027a15p-58},
    {0x1.110d0c4b69c3bp-1, 0x1.d918998809981p-55, 0x1.b11d04162a4c6p-1, 0x1.1dd561efbc0c2p-56},
    {0x1.17c8e5f2eedb0p-1, 0x1.35e57102e2488p-57, 0x1.accb526f69de5p-1, 0x1.8fb6a8dd6b6ccp-55},
    {0x1.1e7343236574cp-1, 0x1.22a3fa4f41d5ap-56, 0x1.a85ed4373e02dp-1, 0x1.9be06385ec792p-57},
    {0x1.250bb93788bbbp-1, 0x1.ea3d02457bccep-56, 0x1.a3d7d0352bdcfp-1, -0x1.68dbaeca19669p-55},
    {0x1.2b91dea88421ep-1, -0x1.fa371db216ab0p-55, 0x1.9f368ed912f85p-1, -0x1.1d200c5791606p-55},
    {0x1.32054b148bc4fp-1, 0x1.f6b42095a135bp-55, 0x1.9a7b5a36a6514p-1, 0x1.722cfcc9fa7a9p-55},
    {0x1.386597456282bp-1, -0x1.10fada93b07a8p-56, 0x1.95a67e00cb1fdp-1, -0x1.0befda21f862dp-55},
    {0x1.3eb25d36cd53ap-1, -0x1.be570e1570fc0p-58, 0x1.90b84784ddaf7p-1, -0x1.0feb10ab93b87p-56},
    {0x1.44eb381cf386bp-1, -0x1.3ed6c1e6a5505p-55, 0x1.8bb105a5dc900p-1, 0x1.863e03e9474c1p-55},
    {0x1.4b0fc46aab761p-1, 0x1.0da05738cc59cp-61, 0x1.869108d77a6c6p-1, 0x1.338ffe2bfe9ddp-56},
    {0x1.511f9fd7b351cp-1, -0x1.5c0e861c48831p-55, 0x1.8158a31916d5dp-1, -0x1.de8b90b8228dep-57},
    {0x1.571a6966d59b3p-1, 0x1.c843b4d0fb197p-58, 0x1.7c0827f09e54fp-1, -0x1.c73d6d72aee68p-57},
    {0x1.5cffc16bf8f0dp-1, 0x1.96cb370eb578ap-55, 0x1.769fec655211fp-1, -0x1.827d5cf8c68c5p-57},
    {0x1.62cf49921ac79p-1, -0x1.edd9855b6241ap-55, 0x1.712046fa77678p-1, 0x1.425b0a5029c81p-55},
    {0x1.6888a4e134b2fp-1, -0x1.6b7d37644d5e6p-55, 0x1.6b898fa9efb5dp-1, 0x1.15ac786ccf4b2p-56},
};

// sin and cos of r + tail, |r| <= about pi/4, |tail| tiny beside r. With a = k/64 the table point
// nearest |r| and b = |r| - a (exact, |b| <= 1/128):
//   sin(a + b) = sin a + b cos a + [sin a (cos b - 1) + cos a (sin b - b)]
//   cos(a + b) = cos a - b sin a + [cos a (cos b - 1) - sin a (sin b - b)]
// The products with b are kept exactly in two doubles each; the brackets are small enough that their
// rounding stays far below the last place. Nearly every result is the correctly rounded one, as the
// better C libraries give: a ring's vertices land where they did before this was ours.
void SinCosNear(double r, double tail, double& sine, double& cosine) {
    const bool negative = r < 0;
    if (negative) r = -r, tail = -tail;
    const double k = RoundToInteger(r * 64);
    const double* at = kTable[static_cast<int>(k)];
    const double b = r - k / 64;
    const double b2 = b * b;
    // Taylor terms to b^7 and b^6: the next ones are below 2^-70.
    const double sinRest = b * b2 * (-1.0 / 6 + b2 * (1.0 / 120 - b2 * (1.0 / 5040))) + tail;
    const double cosRest = b2 * (-0.5 + b2 * (1.0 / 24 - b2 * (1.0 / 720)));
    double p, pLow, q, qLow, s, sLow, c, cLow;
    TwoProduct(at[2], b, p, pLow);
    TwoProduct(at[0], b, q, qLow);
    // |p|, |q| <= |b| < 1/128, beneath sin a and cos a whenever a > 0 (and at a = 0 s = p exactly).
    FastTwoSum(at[0], p, s, sLow);
    FastTwoSum(at[2], -q, c, cLow);
    sine = s + (sLow + (at[1] + pLow + at[3] * b + at[0] * cosRest + at[2] * sinRest));
    cosine = c + (cLow + (at[3] - qLow - at[1] * b + at[2] * cosRest - at[0] * sinRest));
    if (negative) sine = -sine;
}

// --- arc tangent -------------------------------------------------------------------------------------

constexpr double kPi = 0x1.921fb54442d18p+1, kPiLow = 1.2246467991473531772e-16;
constexpr double kHalfPi = 0x1.921fb54442d18p+0;

// atan(x + extra) = high + low for finite x >= 0, where extra is tiny beside x: what dividing y by x
// rounded off.
void AtanSplit(double x, double extra, double& high, double& low) {
    // atan at 0.5, 1, 1.5 and infinity, each in a rounded part and the rest.
    constexpr double kHigh[] = {4.63647609000806093515e-01, 7.85398163397448278999e-01,
                                9.82793723247329054082e-01, 1.57079632679489655800e+00};
    constexpr double kLow[] = {2.26987774529616870924e-17, 3.06161699786838301793e-17,
                               1.39033110312309984516e-17, 6.12323399573676603587e-17};
    constexpr double T[] = {
        3.33333333333329318027e-01,  -1.99999999998764832476e-01, 1.42857142725034663711e-01,
        -1.11111104054623557880e-01, 9.09088713343650656196e-02,  -7.69187620504482999495e-02,
        6.66107313738753120669e-02,  -5.83357013379057348645e-02, 4.97687799461593236017e-02,
        -3.65315727442169155270e-02, 1.62858201153657823623e-02};
    if (!(x < 0x1p66)) {
        high = kHigh[3], low = kLow[3];
        return;
    }
    extra /= 1.0 + x * x;  // atan's slope at x
    // Reduced to |t| <= 7/16 around the nearest of the four reference points.
    int id = -1;
    if (x >= 0.4375) {
        if (x < 0.6875) {
            id = 0, x = (2.0 * x - 1.0) / (2.0 + x);
        } else if (x < 1.1875) {
            id = 1, x = (x - 1.0) / (x + 1.0);
        } else if (x < 2.4375) {
            id = 2, x = (x - 1.5) / (1.0 + 1.5 * x);
        } else {
            id = 3, x = -1.0 / x;
        }
    }
    const double z = x * x;
    const double w = z * z;
    const double odd = z * (T[0] + w * (T[2] + w * (T[4] + w * (T[6] + w * (T[8] + w * T[10])))));
    const double even = w * (T[1] + w * (T[3] + w * (T[5] + w * (T[7] + w * T[9]))));
    // x - small is the arc tangent beside the reference point; |small| < |x|, so its rounding is exact.
    const double small = x * (odd + even) - (id < 0 ? 0.0 : kLow[id]) - extra;
    const double near = x - small;
    const double nearLow = (x - near) - small;
    if (id < 0) {
        high = near, low = nearLow;
        return;
    }
    double error;
    TwoSum(kHigh[id], near, high, error);
    low = error + nearLow;
}

// --- logarithm and exponential -----------------------------------------------------------------------

constexpr double kLn2High = 0x1.62e42feep-1, kLn2Low = 0x1.a39ef35793c76p-33;  // 32 bits, then the rest
constexpr double kSqrt2 = 0x1.6a09e667f3bcdp+0;

// log(x) = high + low, for finite x > 0, to about 2^-60 of the result.
void LogSplit(double x, double& high, double& low) {
    constexpr double L1 = 6.666666666666735130e-01, L2 = 3.999999999940941908e-01,
                     L3 = 2.857142874366239149e-01, L4 = 2.222219843214978396e-01,
                     L5 = 1.818357216161805012e-01, L6 = 1.531383769920937332e-01,
                     L7 = 1.479819860511658591e-01;
    int k = 0;
    if (x < 0x1p-1022) x *= 0x1p54, k = -54;  // subnormal: make it normal first
    const uint64_t bits = BitsOf(x);
    k += static_cast<int>(bits >> 52) - 1023;
    // x = 2^k m with m in [sqrt(1/2), sqrt(2)), and f = m - 1 exactly.
    double m = FromBits((bits & 0x000fffffffffffffu) | 0x3ff0000000000000u);
    if (m > kSqrt2) m *= 0.5, ++k;
    const double f = m - 1.0;
    // log(1 + f) = f - f^2/2 + s (f^2/2 + R), s = f / (2 + f), R a polynomial in s^2.
    double square, squareError;
    TwoSquare(f, square, squareError);
    const double hfsq = 0.5 * square;
    const double s = f / (2.0 + f);
    const double z = s * s;
    const double w = z * z;
    const double R = z * (L1 + w * (L3 + w * (L5 + w * L7))) + w * (L2 + w * (L4 + w * L6));
    const double dk = k;
    const double a = dk * kLn2High;  // exact: 32 bits times 11
    const double t = f - hfsq;
    const double rest = ((f - t) - hfsq) - 0.5 * squareError + (s * (hfsq + R) + dk * kLn2Low);
    // a + t + rest, with the rounding of the first sum kept in the low part.
    double lost;
    TwoSum(a, t, high, lost);
    FastTwoSum(high, lost + rest, high, low);
}

// exp(x + xl), |xl| tiny beside x.
double ExpSplit(double x, double xl) {
    constexpr double kInvLn2 = 0x1.71547652b82fep+0;
    constexpr double P1 = 1.66666666666666019037e-01, P2 = -2.77777777770155933842e-03,
                     P3 = 6.61375632143793436117e-05, P4 = -1.65339022054652515390e-06,
                     P5 = 4.13813679705723846039e-08;
    if (x > 709.8) return kInf;
    if (x < -745.2) return 0.0;
    // x = k ln2 + r, |r| <= ln2 / 2, r = high - low.
    const double n = RoundToInteger(x * kInvLn2);
    const int k = static_cast<int>(n);
    const double high = x - n * kLn2High;
    const double low = n * kLn2Low - xl;
    const double r = high - low;
    const double z = r * r;
    const double c = r - z * (P1 + z * (P2 + z * (P3 + z * (P4 + z * P5))));
    const double y = 1.0 - ((low - (r * c) / (2.0 - c)) - high);
    if (k > 1023) return y * 2.0 * PowerOfTwo(k - 1);
    if (k < -1021) return y * PowerOfTwo(k + 1000) * 0x1p-1000;
    return y * PowerOfTwo(k);
}

}  // namespace

SineCosine SinCos(double x) {
    if (!std::isfinite(x)) return {kNaN, kNaN};
    double r, tail, s, c;
    const int quadrant = ReduceByHalfPi(x, r, tail);
    SinCosNear(r, tail, s, c);
    switch (quadrant) {
        case 0:
            return {s, c};
        case 1:
            return {c, -s};
        case 2:
            return {-s, -c};
        default:
            return {-c, s};
    }
}

double Atan2(double y, double x) {
    if (std::isnan(x) || std::isnan(y)) return x + y;
    const bool below = std::signbit(y), behind = std::signbit(x);
    double angle;
    if (y == 0) {
        if (!behind) return y;
        angle = kPi;
    } else if (x == 0) {
        angle = kHalfPi;
    } else if (std::isinf(x)) {
        if (std::isinf(y)) {
            angle = behind ? 3 * kHalfPi / 2 : kHalfPi / 2;
        } else {
            angle = behind ? kPi : 0.0;
        }
    } else if (std::isinf(y)) {
        angle = kHalfPi;
    } else {
        // Far steeper or flatter than a double's precision can tell: the quotient would overflow or vanish.
        const int k = BiasedExponent(y) - BiasedExponent(x);
        if (k > 60) {
            angle = kHalfPi + 0.5 * kPiLow;
        } else {
            double high = 0.0, low = 0.0;
            if (!behind || k >= -60) {
                // The quotient and, where the sizes allow the exact product, the part it rounded off.
                const double ay = std::fabs(y), ax = std::fabs(x);
                const double q = ay / ax;
                double lost = 0.0;
                if (ax > 0x1p-500 && ax < 0x1p500 && ay > 0x1p-500 && ay < 0x1p500) {
                    double p, e;
                    TwoProduct(q, ax, p, e);
                    lost = ((ay - p) - e) / ax;
                }
                AtanSplit(q, lost, high, low);
            }
            if (behind) {
                double error;
                TwoSum(kPi, -high, angle, error);
                angle += (error - low) + kPiLow;
            } else {
                angle = high + low;
            }
        }
    }
    return below ? -angle : angle;
}

double Hypot(double x, double y) {
    x = std::fabs(x), y = std::fabs(y);
    if (x < y) std::swap(x, y);
    // The usual case first: y adds to x, and the squares and their splits below are exact. The rest
    // (infinities, NaN, sizes near either end of the range) is made usual by exact scaling.
    if (!(x <= 0x1p500 && y >= 0x1p-500 && y > x * 0x1p-27)) {
        if (std::isinf(x) || std::isinf(y)) return kInf;
        if (std::isnan(x) || std::isnan(y)) return x + y;
        if (!(y > x * 0x1p-27)) return x;  // y changes less than a quarter of x's last place
        const double scale = x > 0x1p500 ? 0x1p-600 : 0x1p600;
        return Hypot(x * scale, y * scale) / scale;
    }
    double h = std::sqrt(x * x + y * y);
    // One Newton step on the exact residual x^2 + y^2 - h^2.
    double xx, xe, yy, ye, hh, he;
    TwoSquare(x, xx, xe);
    TwoSquare(y, yy, ye);
    TwoSquare(h, hh, he);
    return h + (((xx - hh) + yy) + ((xe + ye) - he)) / (2.0 * h);
}

double Log(double x) {
    if (!(x > 0)) return x == 0 ? -kInf : kNaN;
    if (std::isinf(x)) return x;
    double high, low;
    LogSplit(x, high, low);
    return high + low;
}

double Pow(double x, double y) {
    if (y == 0 || x == 1) return 1.0;
    if (std::isnan(x) || std::isnan(y)) return x + y;
    if (std::signbit(x)) {
        // A negative base (or -0) has a real power only at whole exponents; odd ones keep its sign.
        const bool whole = std::fabs(y) >= 0x1p52 || RoundToInteger(y) == y;
        if (!whole) return x == 0 || std::isinf(x) ? Pow(-x, y) : kNaN;
        const bool odd = std::fabs(y) < 0x1p53 && std::fmod(y, 2.0) != 0;
        return odd ? -Pow(-x, y) : Pow(-x, y);
    }
    if (x == 0) return y > 0 ? 0.0 : kInf;
    if (std::isinf(x)) return y > 0 ? kInf : 0.0;
    if (std::isinf(y)) return (x > 1) == (y > 0) ? kInf : 0.0;
    double high, low;
    LogSplit(x, high, low);
    // y log(x) as a sum of two doubles, so that exp's argument keeps the bits its large size would
    // otherwise round away.
    const double z = y * high;
    if (!(std::fabs(z) < 1000)) return z > 0 ? kInf : 0.0;
    double product, error, sum, rest;
    TwoProduct(y, high, product, error);
    FastTwoSum(product, error + y * low, sum, rest);
    return ExpSplit(sum, rest);
}

}  // namespace portable

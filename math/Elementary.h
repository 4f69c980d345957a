#pragma once
#include <cmath>
#include <cstdint>
#include <cstring>

namespace kelm {

// exp, log and atan in double for the devices' evaluations, which call them a few times in
// every iteration of every sample: inline, without errno or the library's call, within a
// few units in the last place (relative errors below 1e-15). Arguments outside the ranges
// worked out here (infinities, NaNs, zero, subnormals, exp beyond +-708) go to the
// library's functions.

namespace elementary {

inline std::uint64_t bitsOf(double x) {
    std::uint64_t b;
    std::memcpy(&b, &x, sizeof b);
    return b;
}

inline double fromBits(std::uint64_t b) {
    double x;
    std::memcpy(&x, &b, sizeof x);
    return x;
}

// ln 2 in two parts: the first with its low 20 bits zero, so that its products with the
// integers here (below 2^17) are exact.
constexpr double ln2Hi = 0x1.62e42feep-1;
constexpr double ln2Lo = 0x1.a39ef35793c76p-33;
constexpr double halfPiHi = 0x1.921fb54442d18p+0;
constexpr double halfPiLo = 0x1.1a62633145c07p-54;

// Rounded to the nearest double (scripts/elementary_tables.py): 2^(j/64); log(1 + j/32) up to
// j = 15, log((1 + j/32) / 2) from 16 (the logarithms of the cells' centres between 3/4 and
// 3/2); atan(j/32).
inline constexpr double kExp2[64] = {
    0x1.0000000000000p+0, 0x1.02c9a3e778061p+0, 0x1.059b0d3158574p+0,
    0x1.0874518759bc8p+0, 0x1.0b5586cf9890fp+0, 0x1.0e3ec32d3d1a2p+0,
    0x1.11301d0125b51p+0, 0x1.1429aaea92de0p+0, 0x1.172b83c7d517bp+0,
    0x1.1a35beb6fcb75p+0, 0x1.1d4873168b9aap+0, 0x1.2063b88628cd6p+0,
    0x1.2387a6e756238p+0, 0x1.26b4565e27cddp+0, 0x1.29e9df51fdee1p+0,
    0x1.2d285a6e4030bp+0, 0x1.306fe0a31b715p+0, 0x1.33c08b26416ffp+0,
    0x1.371a7373aa9cbp+0, 0x1.3a7db34e59ff7p+0, 0x1.3dea64c123422p+0,
    0x1.4160a21f72e2ap+0, 0x1.44e086061892dp+0, 0x1.486a2b5c13cd0p+0,
    0x1.4bfdad5362a27p+0, 0x1.4f9b2769d2ca7p+0, 0x1.5342b569d4f82p+0,
    0x1.56f4736b527dap+0, 0x1.5ab07dd485429p+0, 0x1.5e76f15ad2148p+0,
    0x1.6247eb03a5585p+0, 0x1.6623882552225p+0, 0x1.6a09e667f3bcdp+0,
    0x1.6dfb23c651a2fp+0, 0x1.71f75e8ec5f74p+0, 0x1.75feb564267c9p+0,
    0x1.7a11473eb0187p+0, 0x1.7e2f336cf4e62p+0, 0x1.82589994cce13p+0,
    0x1.868d99b4492edp+0, 0x1.8ace5422aa0dbp+0, 0x1.8f1ae99157736p+0,
    0x1.93737b0cdc5e5p+0, 0x1.97d829fde4e50p+0, 0x1.9c49182a3f090p+0,
    0x1.a0c667b5de565p+0, 0x1.a5503b23e255dp+0, 0x1.a9e6b5579fdbfp+0,
    0x1.ae89f995ad3adp+0, 0x1.b33a2b84f15fbp+0, 0x1.b7f76f2fb5e47p+0,
    0x1.bcc1e904bc1d2p+0, 0x1.c199bdd85529cp+0, 0x1.c67f12e57d14bp+0,
    0x1.cb720dcef9069p+0, 0x1.d072d4a07897cp+0, 0x1.d5818dcfba487p+0,
    0x1.da9e603db3285p+0, 0x1.dfc97337b9b5fp+0, 0x1.e502ee78b3ff6p+0,
    0x1.ea4afa2a490dap+0, 0x1.efa1bee615a27p+0, 0x1.f50765b6e4540p+0,
    0x1.fa7c1819e90d8p+0,
};
inline constexpr double kLog[33] = {
    0x0.0p+0, 0x1.f829b0e783300p-6, 0x1.f0a30c01162a6p-5,
    0x1.6f0d28ae56b4cp-4, 0x1.e27076e2af2e6p-4, 0x1.29552f81ff523p-3,
    0x1.5ff3070a793d4p-3, 0x1.9525a9cf456b4p-3, 0x1.c8ff7c79a9a22p-3,
    0x1.fb9186d5e3e2bp-3, 0x1.1675cababa60ep-2, 0x1.2e8e2bae11d31p-2,
    0x1.4618bc21c5ec2p-2, 0x1.5d1bdbf5809cap-2, 0x1.739d7f6bbd007p-2,
    0x1.89a3386c1425bp-2, -0x1.269621134db92p-2, -0x1.1178e8227e47cp-2,
    -0x1.f991c6cb3b379p-3, -0x1.d1037f2655e7bp-3, -0x1.a93ed3c8ad9e3p-3,
    -0x1.823c16551a3c2p-3, -0x1.5bf406b543db2p-3, -0x1.365fcb0159016p-3,
    -0x1.1178e8227e47cp-3, -0x1.da727638446a2p-4, -0x1.9335e5d594989p-4,
    -0x1.4d3115d207eacp-4, -0x1.08598b59e3a07p-4, -0x1.894aa149fb343p-5,
    -0x1.0415d89e74444p-5, -0x1.0205658935847p-6, 0x0.0p+0,
};
inline constexpr double kAtan[33] = {
    0x0.0p+0, 0x1.ffd55bba97625p-6, 0x1.ff55bb72cfdeap-5,
    0x1.7ee182602f10fp-4, 0x1.fd5ba9aac2f6ep-4, 0x1.3d6eee8c6626cp-3,
    0x1.7b97b4bce5b02p-3, 0x1.b90d7529260a2p-3, 0x1.f5b75f92c80ddp-3,
    0x1.18bf5a30bf178p-2, 0x1.362773707ebccp-2, 0x1.530ad9951cd4ap-2,
    0x1.6f61941e4def1p-2, 0x1.8b24d394a1b25p-2, 0x1.a64eec3cc23fdp-2,
    0x1.c0db4c94ec9f0p-2, 0x1.dac670561bb4fp-2, 0x1.f40dd0b541418p-2,
    0x1.0657e94db30d0p-1, 0x1.1255d9bfbd2a9p-1, 0x1.1e00babdefeb4p-1,
    0x1.2958e59308e31p-1, 0x1.345f01cce37bbp-1, 0x1.3f13fb89e96f4p-1,
    0x1.4978fa3269ee1p-1, 0x1.538f57b89061fp-1, 0x1.5d58987169b18p-1,
    0x1.66d663923e087p-1, 0x1.700a7c5784634p-1, 0x1.78f6bbd5d315ep-1,
    0x1.819d0b7158a4dp-1, 0x1.89ff5ff57f1f8p-1, 0x1.921fb54442d18p-1,
};

} // namespace elementary

// e^x. x = (k + j/64) ln 2 + r with |r| <= ln 2 / 128: e^x = 2^k 2^(j/64) e^r, e^r by its
// Taylor polynomial to r^5 (the next term is below 4e-17).
inline double fastExp(double x) {
    using namespace elementary;
    if (!(std::fabs(x) < 708.0)) return std::exp(x);
    constexpr double toCells = 0x1.71547652b82fep+6;  // 64 / ln 2
    constexpr double shift = 0x1.8p52;                // adding it rounds to an integer
    const double kd = (x * toCells + shift) - shift;
    const std::int64_t k = static_cast<std::int64_t>(kd);
    const double r = (x - kd * (ln2Hi / 64)) - kd * (ln2Lo / 64);
    const double p = r + r * r * (0.5 + r * (1.0 / 6 + r * (1.0 / 24 + r * (1.0 / 120))));
    const double s = fromBits(bitsOf(kExp2[k & 63]) + (static_cast<std::uint64_t>(k >> 6) << 52));
    return s + s * p;
}

// log x. x = 2^e m, m in [1, 2), c the nearest of 1, 1 + 1/32, ..., 2 to m:
// log x = e ln 2 + log c + 2 atanh s, s = (m - c) / (m + c), |s| <= 1/128, atanh by its
// series to s^7 (the next term is below 2e-18 of it). From c = 1.5 on, log c is taken as
// ln 2 + log(c / 2): no term of the sum then cancels another, and near 1 (c = 1, or c = 2
// below 1) the result is 2 atanh s alone.
inline double fastLog(double x) {
    using namespace elementary;
    const std::uint64_t b = bitsOf(x);
    // Positive normal numbers only: their exponent field is 1 to 2046.
    if (b - 0x0010000000000000ull >= 0x7fe0000000000000ull) return std::log(x);
    const double m = fromBits((b & 0x000fffffffffffffull) | 0x3ff0000000000000ull);
    const int j = static_cast<int>(((b >> 46) & 63) + 1) >> 1;
    const int e = static_cast<int>(b >> 52) - 1023 + (j >= 16);
    const double c = 1.0 + j * (1.0 / 32);
    const double s = (m - c) / (m + c);
    const double s2 = s * s;
    const double t = 2 * s + 2 * s * s2 * (1.0 / 3 + s2 * (1.0 / 5 + s2 * (1.0 / 7)));
    return (e * ln2Hi + kLog[j]) + (e * ln2Lo + t);
}

// e^x and log x without branches or table reads, for loops over whole arrays (a device's
// tables at load), which the compiler can then vectorise: relative errors below 1e-13 for
// |x| <= 700 and for positive normal x. Outside those ranges the results are not defined:
// callers clamp their arguments.
inline double branchlessExp(double x) {
    using namespace elementary;
    constexpr double log2e = 0x1.71547652b82fep+0;
    constexpr double shift = 0x1.8p52;  // adding it rounds to an integer in the low bits
    const double shifted = x * log2e + shift;
    const double kd = shifted - shift;
    // The integer k from the low bits of the shifted sum, 2^k by its exponent field.
    const std::uint64_t k = bitsOf(shifted) - bitsOf(shift);
    const double r = (x - kd * (ln2Hi)) - kd * ln2Lo;  // |r| <= ln 2 / 2
    // Taylor's polynomial to r^12: the next term is below 2e-15 of e^r.
    double p = 1.0 / 479001600;
    p = p * r + 1.0 / 39916800;
    p = p * r + 1.0 / 3628800;
    p = p * r + 1.0 / 362880;
    p = p * r + 1.0 / 40320;
    p = p * r + 1.0 / 5040;
    p = p * r + 1.0 / 720;
    p = p * r + 1.0 / 120;
    p = p * r + 1.0 / 24;
    p = p * r + 1.0 / 6;
    p = p * r + 0.5;
    p = p * r + 1.0;
    p = p * r + 1.0;
    return p * fromBits((k + 1023) << 52);
}

inline double branchlessLog(double x) {
    using namespace elementary;
    // x = 2^e m with m in [sqrt(1/2), sqrt(2)): the exponent field counted from sqrt(1/2).
    constexpr std::uint64_t half = 0x3fe6a09e667f3bcdull;  // sqrt(1/2)
    const std::uint64_t u = bitsOf(x) - half;
    const double m = fromBits(bitsOf(x) - (u & 0xfff0000000000000ull));
    // e from e + 1023 (1 to 2046 for normal x) as a double, exactly, without an integer
    // conversion.
    const double e = fromBits(0x4330000000000000ull | ((u + (1023ull << 52)) >> 52)) - (0x1p52 + 1023);
    // log m = 2 atanh s, s = (m - 1) / (m + 1), |s| <= 0.172: the series to s^17.
    const double s = (m - 1) / (m + 1), s2 = s * s;
    double t = 1.0 / 17;
    t = t * s2 + 1.0 / 15;
    t = t * s2 + 1.0 / 13;
    t = t * s2 + 1.0 / 11;
    t = t * s2 + 1.0 / 9;
    t = t * s2 + 1.0 / 7;
    t = t * s2 + 1.0 / 5;
    t = t * s2 + 1.0 / 3;
    return (e * ln2Hi + e * ln2Lo) + 2 * s + 2 * s * s2 * t;
}

// atan x. For |x| <= 1, c the nearest of 0, 1/32, ..., 1: atan x = atan c + atan t,
// t = (x - c) / (1 + x c), |t| <= 1/64, atan t by its series to t^9 (the next term is below
// 1e-19 of it). Above 1, pi/2 - atan(1/x), t written without 1/x.
inline double fastAtan(double x) {
    using namespace elementary;
    const double a = std::fabs(x);
    if (!(a < 1e15)) return std::atan(x);
    const bool inverted = a > 1;
    int k;
    double t;
    if (inverted) {
        k = static_cast<int>(32 / a + 0.5);
        const double c = k * (1.0 / 32);
        t = (1 - a * c) / (a + c);
    } else {
        k = static_cast<int>(a * 32 + 0.5);
        const double c = k * (1.0 / 32);
        t = (a - c) / (1 + a * c);
    }
    const double t2 = t * t;
    const double p = t - t * t2 * (1.0 / 3 - t2 * (1.0 / 5 - t2 * (1.0 / 7 - t2 * (1.0 / 9))));
    double r = kAtan[k] + p;
    if (inverted) r = (halfPiHi - r) + halfPiLo;
    return std::copysign(r, x);
}

} // namespace kelm

#include "math/SolvedBlockInverse.h"

#include <algorithm>
#include <cmath>

namespace kelm {

bool invertSolvedBlock(const float* A, int n, int m, double* inverse, int stride) {
    constexpr int most = 8;
    if (m < 1 || m > most || n < m) return false;
    auto a = [A, n](int r, int c) { return static_cast<double>(A[static_cast<size_t>(c) * n + r]); };
    // [A_ss | I] becomes [I | A_ss^-1].
    double w[most][2 * most];
    double scale = 0;
    for (int r = 0; r < m; ++r)
        for (int c = 0; c < 2 * m; ++c) {
            w[r][c] = c < m ? a(r, c) : (c - m == r ? 1.0 : 0.0);
            if (c < m) scale = std::max(scale, std::fabs(w[r][c]));
        }
    if (!(scale > 0) || !std::isfinite(scale)) return false;
    for (int c = 0; c < m; ++c) {
        int pivot = c;
        for (int r = c + 1; r < m; ++r)
            if (std::fabs(w[r][c]) > std::fabs(w[pivot][c])) pivot = r;
        // A block as near singular as this would leave the step to rounding.
        if (!(std::fabs(w[pivot][c]) > scale * 1e-12)) return false;
        if (pivot != c)
            for (int k = 0; k < 2 * m; ++k) std::swap(w[pivot][k], w[c][k]);
        const double d = 1.0 / w[c][c];
        for (int k = 0; k < 2 * m; ++k) w[c][k] *= d;
        for (int r = 0; r < m; ++r) {
            if (r == c || w[r][c] == 0) continue;
            const double f = w[r][c];
            for (int k = 0; k < 2 * m; ++k) w[r][k] -= f * w[c][k];
        }
    }
    for (int r = 0; r < m; ++r)
        for (int c = 0; c < m; ++c) inverse[c * stride + r] = w[r][m + c];
    return true;
}

} // namespace kelm

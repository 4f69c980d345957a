#include "math/WideLU.h"

#include <cmath>
#include <utility>

namespace kelm {

bool WideLU::factor(double* a, int n, int* pivots) {
    double largest = 0;
    for (int i = 0; i < n * n; ++i) {
        if (!std::isfinite(a[i])) return false;
        largest = std::fmax(largest, std::fabs(a[i]));
    }
    if (!(largest > 0)) return n == 0;
    const double smallest = largest * 1e-13;
    for (int c = 0; c < n; ++c) {
        int p = c;
        double best = std::fabs(a[c * n + c]);
        for (int r = c + 1; r < n; ++r) {
            const double v = std::fabs(a[r * n + c]);
            if (v > best) {
                best = v;
                p = r;
            }
        }
        pivots[c] = p;
        if (!(best > smallest)) return false;
        if (p != c)
            for (int k = 0; k < n; ++k) std::swap(a[c * n + k], a[p * n + k]);
        const double inverse = 1.0 / a[c * n + c];
        for (int r = c + 1; r < n; ++r) {
            double& l = a[r * n + c];
            if (l == 0) continue;
            l *= inverse;
            const double* upper = a + c * n;
            double* row = a + r * n;
            for (int k = c + 1; k < n; ++k) row[k] -= l * upper[k];
        }
    }
    return true;
}

void WideLU::solve(const double* lu, int n, const int* pivots, double* b) {
    for (int c = 0; c < n; ++c)
        if (pivots[c] != c) std::swap(b[c], b[pivots[c]]);
    for (int r = 1; r < n; ++r) {
        double sum = b[r];
        const double* row = lu + r * n;
        for (int k = 0; k < r; ++k) sum -= row[k] * b[k];
        b[r] = sum;
    }
    for (int r = n - 1; r >= 0; --r) {
        double sum = b[r];
        const double* row = lu + r * n;
        for (int k = r + 1; k < n; ++k) sum -= row[k] * b[k];
        b[r] = sum / row[r];
    }
}

void WideLU::solveTransposed(const double* lu, int n, const int* pivots, double* b) {
    // P A = L U, so A^T = U^T L^T P: solve U^T y = b, then L^T z = y, then x = P^T z.
    for (int r = 0; r < n; ++r) {
        double sum = b[r];
        for (int k = 0; k < r; ++k) sum -= lu[k * n + r] * b[k];
        b[r] = sum / lu[r * n + r];
    }
    for (int r = n - 1; r >= 0; --r) {
        double sum = b[r];
        for (int k = r + 1; k < n; ++k) sum -= lu[k * n + r] * b[k];
        b[r] = sum;
    }
    for (int c = n - 1; c >= 0; --c)
        if (pivots[c] != c) std::swap(b[c], b[pivots[c]]);
}

} // namespace kelm

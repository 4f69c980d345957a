#pragma once
#include <cmath>
#include <vector>

namespace kelm {

// K smooth functions of one variable, tabulated on two abutting uniform grids (a coarse one
// below a split point, a fine one above it) and interpolated by cubic pieces that match each
// function's value and slope at the grid points. A lookup gives the interpolant and its own
// slope, so that Newton's iteration on tabulated functions converges as on the functions
// themselves. The storage is reserved once; building and looking up never allocate.
template <int K>
class HermiteTable {
public:
    // Room for up to `coarse` intervals below the split and `fine` above it.
    void reserve(int coarse, int fine) {
        coarseRoom = coarse;
        fineRoom = fine;
        coef.assign(static_cast<size_t>(coarse + fine) * K * 4, 0.0);
        clear();
    }
    // Empties the table: every lookup fails.
    void clear() {
        coarseCount = fineCount = 0;
        lo = split = 0;
    }
    int coarseCapacity() const { return coarseRoom; }
    int fineCapacity() const { return fineRoom; }

    // Tabulates f over [low, mid] in `coarse` intervals and over [mid, high] in `fine` ones
    // (at most as many as reserved; none below mid where low >= mid). f(v, value, slope) writes
    // the K values and slopes at v.
    template <typename F>
    void build(double low, double mid, double high, int coarse, int fine, F&& f) {
        clear();
        if (!(high > mid) || fine < 1 || fine > fineRoom || coarse > coarseRoom) return;
        if (!(low < mid)) coarse = 0;
        coarseCount = coarse;
        fineCount = fine;
        lo = low;
        split = mid;
        coarseStep = coarse > 0 ? (mid - low) / coarse : 0;
        fineStep = (high - mid) / fine;
        invCoarse = coarse > 0 ? 1 / coarseStep : 0;
        invFine = 1 / fineStep;
        double va[K], sa[K], vb[K], sb[K];
        auto fill = [&](int first, int count, double start, double end, double step) {
            f(start, va, sa);
            for (int n = 0; n < count; ++n) {
                // The last point of each grid is its end exactly, not a sum of steps.
                const double b = n + 1 == count ? end : start + (n + 1) * step;
                f(b, vb, sb);
                double* c = &coef[static_cast<size_t>(first + n) * K * 4];
                for (int k = 0; k < K; ++k, c += 4) {
                    // On the unit interval t = (v - a) / step: the cubic with the ends' values
                    // and slopes.
                    const double da = step * sa[k], db = step * sb[k], rise = vb[k] - va[k];
                    c[0] = va[k];
                    c[1] = da;
                    c[2] = 3 * rise - 2 * da - db;
                    c[3] = -2 * rise + da + db;
                    va[k] = vb[k];
                    sa[k] = sb[k];
                }
            }
        };
        if (coarse > 0) fill(0, coarse, low, mid, coarseStep);
        fill(coarse, fine, mid, high, fineStep);
    }

    // The K interpolated values and slopes at v; false (nothing written) where v is outside
    // the table or not a number.
    bool lookup(double v, double* value, double* slope) const {
        double t, inv;
        int index;
        if (v >= split) {
            t = (v - split) * invFine;
            if (!(t < fineCount)) return false;
            index = static_cast<int>(t);
            t -= index;
            index += coarseCount;
            inv = invFine;
        } else {
            t = (v - lo) * invCoarse;
            if (!(t >= 0) || coarseCount == 0) return false;
            index = static_cast<int>(t);
            if (index >= coarseCount) index = coarseCount - 1;
            t -= index;
            inv = invCoarse;
        }
        const double* c = &coef[static_cast<size_t>(index) * K * 4];
        for (int k = 0; k < K; ++k, c += 4) {
            value[k] = c[0] + t * (c[1] + t * (c[2] + t * c[3]));
            slope[k] = (c[1] + t * (2 * c[2] + 3 * t * c[3])) * inv;
        }
        return true;
    }

private:
    std::vector<double> coef;  // per interval, per function: the cubic's four coefficients in t
    int coarseRoom = 0, fineRoom = 0, coarseCount = 0, fineCount = 0;
    double lo = 0, split = 0, coarseStep = 0, fineStep = 0, invCoarse = 0, invFine = 0;
};

} // namespace kelm

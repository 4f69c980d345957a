#include "solvers/TriodePortForm.h"

#include <algorithm>
#include <cmath>

#include "circuit/MNAContext.h"
#include "math/SolvedBlockInverse.h"

namespace kelm {

bool TriodePortForm::build(MNAContext& context, const scalar* A, int n, int m) {
    triode = nullptr;
    Triode* t = dynamic_cast<Triode*>(context.soleNonlinear());
    if (!t || m < 1 || n > maxUnknowns) return false;
    const int L = maxUnknowns;
    auto a = [A, n](int r, int c) { return static_cast<double>(A[static_cast<size_t>(c) * n + r]); };

    std::fill(inverse, inverse + L * L, 0.0);
    if (!invertSolvedBlock(A, n, m, inverse, L)) return false;
    std::fill(coupled, coupled + L * L, 0.0);
    for (int r = 0; r < m; ++r)
        for (int c = m; c < n; ++c) coupled[(c - m) * L + r] = a(r, c);

    // T: the plate current leaves the plate's row, the grid current the grid's, and both
    // enter the cathode's; rows of ground and of forced nodes take nothing. The ports:
    // vgk = x(grid) - x(cathode), vpk = x(plate) - x(cathode).
    const int plate = t->plateIndex(), grid = t->gridIndex(), cathode = t->cathodeIndex();
    double T[maxUnknowns][2] = {};
    auto inject = [&T, m](int row, double ip, double ig) {
        if (row < 0 || row >= m) return;
        T[row][0] += ip;
        T[row][1] += ig;
    };
    inject(plate, 1, 0);
    inject(grid, 0, 1);
    inject(cathode, -1, -1);
    for (auto& row : ports) std::fill(row, row + L, 0.0);
    auto sense = [this, n](int port, int index, double sign) {
        if (index >= 0 && index < n) ports[port][index] += sign;
    };
    sense(0, grid, 1);
    sense(0, cathode, -1);
    sense(1, plate, 1);
    sense(1, cathode, -1);

    for (int j = 0; j < 2; ++j)
        for (int i = 0; i < L; ++i) {
            double v = 0;
            if (i < m)
                for (int k = 0; k < m; ++k) v += inverse[k * L + i] * T[k][j];
            response[j][i] = v;
        }
    for (int q = 0; q < 2; ++q)
        for (int j = 0; j < 2; ++j) {
            double v = 0;
            for (int i = 0; i < m; ++i) v += ports[q][i] * response[j][i];
            K[q][j] = v;
        }
    for (int q = 0; q < 2; ++q)
        for (int j = 0; j < n; ++j) {
            // Es times column j of A_ss^-1, or of -A_ss^-1 A_su.
            double v = j < m ? 0.0 : ports[q][j];
            for (int i = 0; i < m; ++i) {
                double column = 0;
                if (j < m)
                    column = inverse[j * L + i];
                else
                    for (int k = 0; k < m; ++k) column -= inverse[k * L + i] * coupled[(j - m) * L + k];
                v += ports[q][i] * column;
            }
            direct[q][j] = v;
        }
    triode = t;
    return true;
}

} // namespace kelm

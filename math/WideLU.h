#pragma once

namespace kelm {

// LU factorisation with partial pivoting of a square matrix of doubles, in place, for
// the solve kernels: no allocation, so that it may run on the audio thread when a control
// changes a circuit's matrix.
class WideLU {
public:
    // Factors the n by n row-major matrix a in place; pivots receives n entries. False for
    // a matrix that is singular, or so near it that a pivot falls below 1e-13 of the
    // largest entry, or that holds a value that is not finite.
    static bool factor(double* a, int n, int* pivots);
    // Solves A x = b with the factors: b (n entries) becomes x.
    static void solve(const double* lu, int n, const int* pivots, double* b);
    // Solves A^T x = b with the same factors: b becomes x.
    static void solveTransposed(const double* lu, int n, const int* pivots, double* b);
};

} // namespace kelm

#pragma once


namespace kelm {

// Writes the inverse of the leading m by m block of the n by n column-major A to inverse
// (column-major, columns `stride` apart, at most 8 by 8), by Gauss-Jordan elimination with
// partial pivoting in double. False when the block is singular or so near it that a pivot
// falls below 1e-12 of its largest entry, or holds no finite value.
bool invertSolvedBlock(const float* A, int n, int m, double* inverse, int stride);

} // namespace kelm

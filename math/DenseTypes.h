#pragma once
// Dense column-major single-precision matrix and vector of the circuit solvers.
#include <Eigen/Core>

namespace kelm {

typedef Eigen::Matrix<float, Eigen::Dynamic, Eigen::Dynamic, Eigen::ColMajor> DenseMatrix;
typedef Eigen::Matrix<float, Eigen::Dynamic, 1> DenseVector;

} // namespace kelm

// The port iteration's small solves against Eigen: elimination with row exchanges, a second
// right-hand side on the kept factors, the 4 x 4 inverse.
#include <random>

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include "math/ColumnSolve.h"

using namespace kelm;

namespace {

// A matrix whose diagonal is small against the rest, so that every column's pivot is
// taken from another row.
template <int N>
Eigen::Matrix<double, N, N> needingExchanges(std::mt19937& rng) {
    std::uniform_real_distribution<double> u(-1, 1);
    Eigen::Matrix<double, N, N> A;
    for (int i = 0; i < A.size(); ++i) A.data()[i] = u(rng);
    for (int i = 0; i < N; ++i) A(i, i) *= 1e-3;
    return A;
}

template <int N>
void checkKeptFactors(std::mt19937& rng) {
    std::uniform_real_distribution<double> u(-1, 1);
    for (int trial = 0; trial < 20; ++trial) {
        const Eigen::Matrix<double, N, N> A = needingExchanges<N>(rng);
        Eigen::Matrix<double, N, 1> b, c;
        for (int i = 0; i < N; ++i) b[i] = u(rng), c[i] = u(rng);
        const auto lu = A.fullPivLu();
        Eigen::Matrix<double, N, N> factors = A;
        Eigen::Matrix<double, N, 1> x = b;
        int order[N];
        ASSERT_TRUE(solveColumns<N>(factors.data(), N, x.data(), order));
        const double scale = 1e-11 * lu.solve(b).cwiseAbs().maxCoeff();
        EXPECT_LT((x - lu.solve(b)).cwiseAbs().maxCoeff(), scale) << "N=" << N;
        // Another right-hand side on the same factors, as the next sample's chord step takes it.
        Eigen::Matrix<double, N, 1> y = c;
        solveFactored<N>(factors.data(), order, y.data());
        EXPECT_LT((y - lu.solve(c)).cwiseAbs().maxCoeff(), 1e-11 * lu.solve(c).cwiseAbs().maxCoeff()) << "N=" << N;
    }
}

} // namespace

TEST(MathColumnSolve, KeptFactorsSolveAnotherRightHandSideAfterRowExchanges) {
    std::mt19937 rng(7);
    checkKeptFactors<5>(rng);
    checkKeptFactors<8>(rng);
    checkKeptFactors<12>(rng);
}

TEST(MathColumnSolve, FourByFourInverseAndSingularMatrices) {
    std::mt19937 rng(3);
    for (int trial = 0; trial < 20; ++trial) {
        const Eigen::Matrix4d A = needingExchanges<4>(rng);
        Eigen::Matrix4d inverse;
        ASSERT_TRUE(invert4(A.data(), inverse.data()));
        EXPECT_LT((inverse * A - Eigen::Matrix4d::Identity()).cwiseAbs().maxCoeff(), 1e-10);
        Eigen::Vector4d b(1, -2, 0.5, 3), x = b;
        multiply4(inverse.data(), x.data());
        EXPECT_LT((A * x - b).cwiseAbs().maxCoeff(), 1e-10);
    }
    // Two equal columns, or a NaN: no solution, and the callers are told.
    Eigen::Matrix4d S = Eigen::Matrix4d::Identity();
    S.col(2) = S.col(1);
    Eigen::Matrix4d out;
    EXPECT_FALSE(invert4(S.data(), out.data()));
    Eigen::Matrix<double, 5, 5> T = Eigen::Matrix<double, 5, 5>::Identity();
    T.col(3) = T.col(0);
    double b[5] = {1, 1, 1, 1, 1};
    int order[5];
    EXPECT_FALSE(solveColumns<5>(T.data(), 5, b, order));
    Eigen::Matrix<double, 5, 5> U = Eigen::Matrix<double, 5, 5>::Identity();
    U(2, 2) = std::nan("");
    EXPECT_FALSE(solveColumns<5>(U.data(), 5, b, order));
}
